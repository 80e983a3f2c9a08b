#ifndef VELTRA_BENCH_RESIDENT_LINUX_H
#define VELTRA_BENCH_RESIDENT_LINUX_H

#include <fstream>
#include <iostream>
#include <string>

/// Writes the process's resident memory to standard output: all of it, and what of it no other
/// process could share, in KiB.
inline void ReportResidentMemory() {
    std::ifstream status("/proc/self/status");
    long all = 0;
    long own = 0;
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) all = std::stol(line.substr(6));
        if (line.starts_with("RssAnon:")) own = std::stol(line.substr(8));
    }
    std::cout << all << ' ' << own << '\n';
}

#endif
