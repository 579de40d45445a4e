#include "cli/table.h"

#include <algorithm>

namespace qvcli {

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Table::add(std::vector<std::string> row)
{
    row.resize(columns_.size());
    rows_.push_back(std::move(row));
}

std::string Table::text(size_t width) const
{
    std::vector<size_t> w(columns_.size(), 0);
    for (size_t c = 0; c < columns_.size(); ++c)
        w[c] = columns_[c].heading.size();
    for (const auto& row : rows_)
        for (size_t c = 0; c < row.size(); ++c)
            w[c] = std::max(w[c], row[c].size());

    auto line = [&](const std::vector<std::string>& cells) {
        std::string s;
        for (size_t c = 0; c < columns_.size(); ++c) {
            const std::string& cell = cells[c];
            bool last = c + 1 == columns_.size();
            std::string pad(w[c] - cell.size(), ' ');
            if (columns_[c].right)
                s += pad + cell;
            else
                s += last ? cell : cell + pad;
            if (!last)
                s += "  ";
        }
        while (!s.empty() && s.back() == ' ')
            s.pop_back();
        if (width > 0 && s.size() > width)
            s.resize(width);
        return s + "\n";
    };

    std::vector<std::string> headings;
    for (const auto& col : columns_)
        headings.push_back(col.heading);
    std::string out = line(headings);
    for (const auto& row : rows_)
        out += line(row);
    return out;
}

void Table::print(FILE* f) const
{
    std::string t = text();
    fwrite(t.data(), 1, t.size(), f);
}

std::string bytesText(double n)
{
    const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    int u = 0;
    bool negative = n < 0;
    double v = negative ? -n : n;
    while (v >= 1024.0 && u < 6) {
        v /= 1024.0;
        ++u;
    }
    char buf[48];
    snprintf(buf, sizeof(buf), u == 0 ? "%s%.0f %s" : "%s%.1f %s", negative ? "-" : "", v, units[u]);
    return buf;
}

std::string percentText(double part, double whole)
{
    if (whole <= 0)
        return "-";
    char buf[32];
    snprintf(buf, sizeof(buf), "%.1f%%", 100.0 * part / whole);
    return buf;
}

std::string numberText(long long n)
{
    return std::to_string(n);
}

std::string numberText(unsigned long long n)
{
    return std::to_string(n);
}

std::string numberText(double v, int decimals)
{
    char buf[64];
    snprintf(buf, sizeof(buf), "%.*f", decimals, v);
    return buf;
}

std::string tallyText(const std::map<std::string, int>& tally)
{
    std::vector<std::pair<std::string, int>> v(tally.begin(), tally.end());
    std::stable_sort(v.begin(), v.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    std::string s;
    for (const auto& kv : v)
        s += (s.empty() ? "" : ", ") + std::to_string(kv.second) + " " + kv.first;
    return s;
}

std::string orDash(const std::string& s)
{
    return s.empty() ? "-" : s;
}

} // namespace qvcli
