// A plane of a picture in memory that betrays every access outside it: unmapped pages before and behind, and
// a known pattern in every byte that is not the plane's.
//
//   GuardedPlane plane(width, height, stride, GuardedPlane::At::end);   // all in bytes and rows
//   plane.row(y)[x] = ...;
//   plane.make_read_only();                            // a write is a crash from here on
//   EXPECT_TRUE(plane.untouched_outside(8, 3));        // only the first 8 bytes of the first 3 rows may
//   differ
//
// The plane ends with the last byte of its last row, not with that row's stride. It lies against the unmapped
// page behind it (At::end) or against the one before it (At::begin).
#ifndef NARO_TESTS_GUARDED_PLANE_H
#define NARO_TESTS_GUARDED_PLANE_H

#include <stddef.h>
#include <stdexcept>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

class GuardedPlane
{
  public:
    enum class At { begin, end };

    GuardedPlane(size_t row_bytes, size_t rows, size_t row_stride, At at) : stride(row_stride)
    {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t bytes = rows == 0 || row_bytes == 0 ? 0 : (rows - 1) * stride + row_bytes;
        inner = (bytes + page) / page * page; // at least one page, also for an empty plane
        mapped = inner + 2 * page;
        void *memory = mmap(nullptr, mapped, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED)
            throw std::runtime_error("no memory for a plane");
        base = static_cast<uint8_t *>(memory);
        first = base + page;
        if (mprotect(first, inner, PROT_READ | PROT_WRITE) != 0)
            throw std::runtime_error("no access to a plane");
        for (size_t i = 0; i < inner; i++)
            first[i] = pattern(i);
        start = at == At::begin ? first : first + inner - bytes;
    }
    ~GuardedPlane() { munmap(base, mapped); }
    GuardedPlane(const GuardedPlane &) = delete;
    GuardedPlane &operator=(const GuardedPlane &) = delete;

    uint8_t *data() { return start; }
    uint8_t *row(size_t y) { return start + y * stride; }
    void make_read_only() { mprotect(first, inner, PROT_READ); }

    // Whether every mapped byte still has the pattern, save the first `row_bytes` of the first `rows` rows.
    bool untouched_outside(size_t row_bytes, size_t rows) const
    {
        for (size_t i = 0; i < inner; i++) {
            if (first[i] == pattern(i))
                continue;
            if (first + i < start)
                return false;
            const size_t offset = static_cast<size_t>(first + i - start);
            if (offset / stride >= rows || offset % stride >= row_bytes)
                return false;
        }
        return true;
    }

  private:
    static uint8_t pattern(size_t i) { return static_cast<uint8_t>(0xA5 ^ (i * 29)); }

    size_t stride;
    size_t inner;
    size_t mapped;
    uint8_t *base;
    uint8_t *first;
    uint8_t *start;
};

#endif
