// What the benchmarks share: building atom bytes for synthetic movies, and the resident memory of
// the process.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <vector>

inline void put32(std::vector<unsigned char>& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<unsigned char>(v >> shift));
}

inline void putAtom(std::vector<unsigned char>& out, char const* type, std::vector<unsigned char> const& body) {
    put32(out, static_cast<uint32_t>(body.size() + 8));
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), body.begin(), body.end());
}

inline std::vector<unsigned char> nest(char const* type, std::vector<unsigned char> const& body) {
    std::vector<unsigned char> out;
    putAtom(out, type, body);
    return out;
}

inline long residentKb() {
    long pages = 0, resident = 0;
    if (FILE* statm = fopen("/proc/self/statm", "r")) {
        if (fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
        fclose(statm);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}
