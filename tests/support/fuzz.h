// Helpers of the randomized robustness tests: a seeded random source, and a buffer whose end
// touches a no-access page, so that a parser reading one byte too far faults.
#pragma once
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

class Random {
public:
    explicit Random(uint32_t seed) : engine(seed) {}
    uint32_t Below(uint32_t n) { return static_cast<uint32_t>(engine() % n); }
    bool OneIn(uint32_t n) { return Below(n) == 0; }
    template <typename T, size_t N>
    const T& Pick(const T (&items)[N]) { return items[Below(N)]; }
    std::string Bytes(size_t count)
    {
        std::string bytes(count, '\0');
        for (auto& c : bytes)
            c = static_cast<char>(Below(256));
        return bytes;
    }

private:
    std::mt19937 engine;
};

// A writable area whose end touches a no-access page.
class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size)
    {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        size_t page = info.dwPageSize;
        size_t usable = (size + page - 1) / page * page;
        base = static_cast<char*>(VirtualAlloc(nullptr, usable + page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        DWORD old;
        guarded = base && VirtualProtect(base + usable, page, PAGE_NOACCESS, &old);
        end = base + usable;
    }
    ~GuardedBuffer() { VirtualFree(base, 0, MEM_RELEASE); }

    bool Guarded() const
    {
        MEMORY_BASIC_INFORMATION memory;
        return guarded && VirtualQuery(end, &memory, sizeof(memory)) && memory.Protect == PAGE_NOACCESS;
    }
    // Copies the bytes so that their last one is the last readable byte.
    const char* Place(const char* bytes, size_t count)
    {
        std::memcpy(end - count, bytes, count);
        return end - count;
    }

private:
    char* base = nullptr;
    char* end = nullptr;
    bool guarded = false;
};
