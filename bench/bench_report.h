#ifndef QUELVANE_BENCH_REPORT_H
#define QUELVANE_BENCH_REPORT_H

// What every benchmark program shares: its command line, the sandbox it runs
// in, the clock, medians, the table and the JSON it writes.

#include <cstdio>
#include <string>
#include <vector>

namespace qvbench {

struct Options {
    std::string jsonPath;       // --json FILE: also write the figures there
    FILE* jsonFile = nullptr;   // that file, opened before the sandbox hides /tmp
    int rounds = 0;             // --rounds N: measured rounds (0: the program's default)
    long lines = 0;             // --lines N: lines per measurement (0: the program's default)
};

// Parses --json FILE, --rounds N and --lines N; prints `usage` and exits on anything else.
// The JSON file is opened here, before enterSandbox(), so that a path under
// /tmp names the machine's file and not one of the private tmpfs.
Options parseOptions(int argc, char** argv, const char* usage);

// Enters a private mount namespace with tmpfs over the library's fixed
// directories, as every test case does, so that the stand-in daemon can stand
// at the real socket path without touching the machine (needs root).
void enterSandbox();

// Monotonic time in milliseconds.
double nowMs();

double median(std::vector<double> values);

// "N cores, CPU MODEL": what the figures were measured on.
std::string machineText();

// A table with a header row, columns padded to their widest cell.
void printTable(const std::vector<std::string>& header,
                const std::vector<std::vector<std::string>>& rows);

// Number with `digits` decimals.
std::string fixed(double value, int digits);

// JSON pieces: a quoted string, an array of numbers.
std::string jsonString(const std::string& text);
std::string jsonNumbers(const std::vector<double>& values);

// Writes `json` to the --json file, if one was named, and closes it; false if
// that failed.
bool writeJson(const Options& options, const std::string& json);

} // namespace qvbench

#endif
