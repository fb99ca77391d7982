// Makes new inputs out of known ones: bits, bytes, numbers, pieces, and words that the known inputs are made of. The
// same seed and the same known inputs give the same new ones. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

class Mutator {
public:
    Mutator(uint64_t seed, size_t maxLength) : state(seed), limit(maxLength) {}

    // The words of an input may turn up in new ones.
    void LearnWords(std::string_view input);
    // A copy of one of `inputs` (at least one) with a few changes.
    std::string Make(const std::vector<std::string>& inputs);

private:
    uint64_t Random();
    size_t Below(size_t bound) { return bound ? static_cast<size_t>(Random() % bound) : 0; }
    void Change(std::string& input, const std::string& other);
    void ChangeByte(std::string& input);
    void ChangeNumber(std::string& input);
    void ChangeDigits(std::string& input);
    void ChangeRange(std::string& input);
    void Put(std::string& input, std::string_view piece);
    std::string_view PieceOf(std::string_view text);

    uint64_t state;
    const size_t limit;
    std::set<std::string, std::less<>> known;
    std::vector<std::string> words;
};
