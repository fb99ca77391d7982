// What fuzz targets share. A target is one file Fuzz<Name>.cpp with one entry point, LLVMFuzzerTestOneInput, which does
// something with the bytes and ends the process when a property doesn't hold: so that any driver sees it, ours
// (Driver.cpp) and libFuzzer. The same bytes must do the same each time. One thread calls it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Ends the process unless `holds`. By default the line is the caller's.
inline void Require(bool holds, std::string_view what, int line = __builtin_LINE()) {
    if (holds) return;
    const std::string text = "fuzz: line " + std::to_string(line) + ": does not hold: " + std::string(what) + "\n";
    if (write(STDERR_FILENO, text.data(), text.size()) < 0) std::_Exit(1);
    std::abort();
}

// Takes values off the front of an input; what lies behind its end reads as 0 and "".
class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : rest(reinterpret_cast<const char*>(data), size) {}

    bool IsEmpty() const { return rest.empty(); }
    uint8_t Byte() { return Number<uint8_t>(); }
    template <class T>
    T Number() {
        T value{};
        const std::string_view bytes = Bytes(sizeof value);
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }
    // At most `count` bytes.
    std::string_view Bytes(size_t count) {
        const std::string_view taken = rest.substr(0, count);
        rest.remove_prefix(taken.size());
        return taken;
    }
    // Up to the next 0, which is taken too, or to the end.
    std::string Text() {
        const std::string text(Bytes(std::min(rest.find('\0'), rest.size())));
        Bytes(1);
        return text;
    }
    std::string_view Rest() { return Bytes(rest.size()); }

private:
    std::string_view rest;
};

// A copy of a text on the heap with nothing behind its terminator, so that the sanitizer sees a read beyond it.
template <class T>
class ExactText {
public:
    explicit ExactText(std::basic_string_view<T> text) : copy(new T[text.size() + 1]) {
        std::copy(text.begin(), text.end(), copy.get());
        copy[text.size()] = T();
    }
    T* Get() const { return copy.get(); }

private:
    std::unique_ptr<T[]> copy;
};

// A buffer of `size` characters between guards, for builds without sanitizers: those stand around the heap block.
template <class T>
class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size) : count(size), block(new T[size + 2 * kGuard]) {
        std::fill_n(block.get(), size + 2 * kGuard, Mark());
    }
    T* Get() const { return block.get() + kGuard; }
    size_t Size() const { return count; }
    // The terminated text in it; requires a terminator (unless it has no room at all) and whole guards.
    std::basic_string<T> Text(int line = __builtin_LINE()) const {
        const T* const begin = Get();
        const T* const end = begin + count;
        const T* const terminator = std::find(begin, end, T());
        Require(count == 0 || terminator != end, "a text in a buffer ends with a terminator", line);
        for (size_t i = 0; i < kGuard; i++)
            Require(block[i] == Mark() && end[i] == Mark(), "nothing outside a buffer is written", line);
        return {begin, terminator};
    }

private:
    static constexpr size_t kGuard = 16;
    static constexpr T Mark() { return static_cast<T>(0x5A); }

    const size_t count;
    const std::unique_ptr<T[]> block;
};
