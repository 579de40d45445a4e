#ifndef QUELVANE_CLI_TABLE_H
#define QUELVANE_CLI_TABLE_H

// Aligned text tables and the formatting of their cells.

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace qvcli {

class Table
{
public:
    // A column: its heading, and whether its cells stand to the right
    // (numbers).
    struct Column {
        std::string heading;
        bool right = false;
    };

    explicit Table(std::vector<Column> columns);

    void add(std::vector<std::string> row);
    size_t rows() const { return rows_.size(); }

    // The table with its heading line; every line cut to `width` characters
    // when it is not 0.
    std::string text(size_t width = 0) const;
    void print(FILE* f) const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

// "1.5 TiB", "512 B".
std::string bytesText(double n);
// "42.0%"; "-" when the whole is 0.
std::string percentText(double part, double whole);
std::string numberText(long long n);
std::string numberText(unsigned long long n);
std::string numberText(double v, int decimals = 2);
// "7 up, 1 down": the counts of a tally, the largest first.
std::string tallyText(const std::map<std::string, int>& tally);
// The value, or "-" when it is empty.
std::string orDash(const std::string& s);

} // namespace qvcli

#endif
