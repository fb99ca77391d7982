// NSPayload: what Foundation's values share. A counted reference to a T that nobody changes while it is shared: Own
// gives a T of one's own to change, copying it first when others hold it too. Half the size of a std::shared_ptr, which
// counts where arrays of ten thousand keys are copied; and "am I the only owner" is synchronised, which use_count() is
// not.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

template <class T>
class NSPayload {
public:
    NSPayload() = default;
    explicit NSPayload(T value) : cell(new Cell{std::move(value)}) {}
    NSPayload(const NSPayload& other) : cell(other.cell) {
        if (cell) cell->owners.fetch_add(1, std::memory_order_relaxed);
    }
    NSPayload(NSPayload&& other) noexcept : cell(std::exchange(other.cell, nullptr)) {}
    NSPayload& operator=(NSPayload other) noexcept {
        std::swap(cell, other.cell);
        return *this;
    }
    ~NSPayload() {
        if (cell && cell->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) delete cell;
    }

    explicit operator bool() const { return cell != nullptr; }
    const T* Get() const { return cell ? &cell->value : nullptr; }
    bool IsSame(const NSPayload& other) const { return cell == other.cell; }

    // A T that is not shared, made of nothing when there is none.
    T& Own() {
        if (!cell) {
            cell = new Cell{T{}};
        } else if (cell->owners.load(std::memory_order_acquire) != 1) {
            *this = NSPayload(cell->value);
        }
        return cell->value;
    }

private:
    struct Cell {
        T value;
        std::atomic<uint32_t> owners{1};
    };
    Cell* cell = nullptr;
};
