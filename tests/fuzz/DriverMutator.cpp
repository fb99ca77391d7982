#include "DriverMutator.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr size_t kMaxWords = 2000, kMaxWord = 64;

// Where counts, widths and signs end.
constexpr std::array<uint64_t, 24> kNumbers = {
    0,   1,   2,    7,    8,     15,    16,      17,      127,        128,        255,        256,
    259, 260, 1023, 1024, 32767, 65535, 1 << 20, 1 << 24, 0x7FFFFFFF, 0xFFFFFFFF, ~0ull >> 1, ~0ull,
};

bool IsWordCharacter(char c) {
    return c > ' ' && c <= '~';
}

}  // namespace

// SplitMix64.
uint64_t Mutator::Random() {
    uint64_t z = state += 0x9E3779B97F4A7C15;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
    z = (z ^ z >> 27) * 0x94D049BB133111EB;
    return z ^ z >> 31;
}

// Runs of printable characters; a tag is a word of its own.
void Mutator::LearnWords(std::string_view input) {
    std::string word;
    const auto end = [&] {
        if (word.size() >= 2 && word.size() <= kMaxWord && words.size() < kMaxWords && known.insert(word).second)
            words.push_back(word);
        word.clear();
    };
    for (const char c : input) {
        if (!IsWordCharacter(c) || c == '<') end();
        if (IsWordCharacter(c)) word += c;
        if (c == '>') end();
    }
    end();
}

std::string Mutator::Make(const std::vector<std::string>& inputs) {
    // Half of the time one of the latest: what was reached last leads on.
    const size_t latest = std::min<size_t>(inputs.size(), 64);
    const size_t chosen = Below(2) ? Below(inputs.size()) : inputs.size() - 1 - Below(latest);
    std::string input = inputs[chosen];
    do Change(input, inputs[Below(inputs.size())]);
    while (Below(3));
    if (input.size() > limit) input.resize(limit);
    return input;
}

void Mutator::Change(std::string& input, const std::string& other) {
    switch (Below(9)) {
    case 0:
    case 1:
        return ChangeByte(input);
    case 2:
        return ChangeNumber(input);
    case 3:
        return ChangeDigits(input);
    case 4:
    case 5:
        return ChangeRange(input);
    case 6:
        if (!words.empty()) Put(input, words[Below(words.size())]);
        return;
    case 7:
        return Put(input, std::string(PieceOf(other)));
    default:  // the begin of one and the end of another
        input.resize(Below(input.size() + 1));
        input += other.substr(Below(other.size() + 1));
    }
}

void Mutator::ChangeByte(std::string& input) {
    if (input.empty()) return;
    char& byte = input[Below(input.size())];
    if (Below(2))
        byte = static_cast<char>(byte ^ 1 << Below(8));
    else
        byte = static_cast<char>(Random());
}

// A number of 1 to 8 bytes, in either order: replaced, or moved a little.
void Mutator::ChangeNumber(std::string& input) {
    const size_t width = size_t{1} << Below(4);
    if (input.size() < width) return;
    char* const at = input.data() + Below(input.size() - width + 1);
    const bool isBigEndian = Below(2) != 0;
    uint64_t value = 0;
    if (isBigEndian) std::reverse(at, at + width);
    std::memcpy(&value, at, width);
    value = Below(2) ? kNumbers[Below(kNumbers.size())] : value + Below(33) - 16;
    std::memcpy(at, &value, width);
    if (isBigEndian) std::reverse(at, at + width);
}

// The same for a number in digits; where there is none, one is put in.
void Mutator::ChangeDigits(std::string& input) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto from = input.begin() + static_cast<long>(Below(input.size() + 1));
    const auto begin = std::find_if(from, input.end(), isDigit);
    const auto end = std::find_if_not(begin, input.end(), isDigit);
    const auto at = static_cast<size_t>(begin - input.begin());
    input.replace(at, static_cast<size_t>(end - begin), std::to_string(kNumbers[Below(kNumbers.size())]));
}

// Takes a range out, doubles it, or fills it.
void Mutator::ChangeRange(std::string& input) {
    if (input.empty()) return;
    const std::string piece(PieceOf(input));
    const size_t at = Below(input.size() - piece.size() + 1);
    switch (Below(4)) {
    case 0:
    case 1:
        input.erase(at, piece.size());
        return;
    case 2:
        input.insert(at, piece);
        return;
    default:
        input.replace(at, piece.size(), piece.size(), static_cast<char>(Random()));
    }
}

// Between two bytes, or over some.
void Mutator::Put(std::string& input, std::string_view piece) {
    const size_t at = Below(input.size() + 1);
    const size_t over = Below(2) ? std::min(piece.size(), input.size() - at) : 0;
    input.replace(at, over, piece);
}

// Short ones more often than long ones.
std::string_view Mutator::PieceOf(std::string_view text) {
    const size_t length = std::min(text.size(), 1 + Below(size_t{1} << Below(10)));
    return text.substr(Below(text.size() - length + 1), length);
}
