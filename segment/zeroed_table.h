#pragma once
// A fixed-size table that starts all zero. The label and object tables of a run are
// megabytes large, and a run uses few of their entries: a large table is mapped
// straight from the system, whose fresh pages read as zero and cost nothing until they
// are touched, so that preparing a run does not pay for entries it never reaches. An
// inaccessible page follows the last entry, so that an index past the end faults at
// once. Small tables come from calloc.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>

template <typename T>
class ZeroedTable {
    static_assert(std::is_trivially_copyable_v<T>, "entries must be valid as zero bytes");
    static constexpr size_t MappedFrom = size_t(64) << 10; // bytes

public:
    ZeroedTable() = default;
    explicit ZeroedTable(size_t n) : size_(n)
    {
        if (n == 0)
            return;
        if (n > SIZE_MAX / 2 / sizeof(T))
            throw std::bad_alloc();
        const size_t bytes = n * sizeof(T);
        if (bytes < MappedFrom) {
            data_ = static_cast<T*>(std::calloc(n, sizeof(T)));
            if (!data_)
                throw std::bad_alloc();
            return;
        }
        const size_t page = size_t(sysconf(_SC_PAGESIZE));
        const size_t usable = (bytes + page - 1) / page * page;
        mapped_ = usable + page;
        base_ = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (base_ == MAP_FAILED || mprotect(base_, usable, PROT_READ | PROT_WRITE) != 0) {
            if (base_ != MAP_FAILED)
                munmap(base_, mapped_);
            base_ = nullptr;
            throw std::bad_alloc();
        }
        // The entries end where the inaccessible page begins.
        data_ = reinterpret_cast<T*>(static_cast<char*>(base_) + (usable - bytes));
    }
    ZeroedTable(ZeroedTable&& other) noexcept { swap(other); }
    ZeroedTable& operator=(ZeroedTable&& other) noexcept
    {
        ZeroedTable(std::move(other)).swap(*this);
        return *this;
    }
    ~ZeroedTable()
    {
        if (base_)
            munmap(base_, mapped_);
        else
            std::free(data_);
    }

    T* data() { return data_; }
    const T* data() const { return data_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T& operator[](size_t i) { return data_[i]; }
    const T& operator[](size_t i) const { return data_[i]; }

private:
    void swap(ZeroedTable& other) noexcept
    {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(base_, other.base_);
        std::swap(mapped_, other.mapped_);
    }

    T* data_ = nullptr;
    size_t size_ = 0;
    void* base_ = nullptr; // the mapping of a large table, else null
    size_t mapped_ = 0;
};
