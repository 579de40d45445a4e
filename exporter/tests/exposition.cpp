#include "exporter/tests/exposition.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace qvexptest {

std::vector<const Sample*> Exposition::find(const std::string& name,
                                            const std::map<std::string, std::string>& match) const
{
    std::vector<const Sample*> out;
    for (const Sample& s : samples) {
        if (s.name != name)
            continue;
        bool all = true;
        for (const auto& kv : match) {
            auto it = s.labels.find(kv.first);
            if (it == s.labels.end() || it->second != kv.second)
                all = false;
        }
        if (all)
            out.push_back(&s);
    }
    return out;
}

double Exposition::value(const std::string& name, const std::map<std::string, std::string>& match) const
{
    std::vector<const Sample*> found = find(name, match);
    std::string where = name;
    for (const auto& kv : match)
        where += " " + kv.first + "=" + kv.second;
    EXPECT_EQ(found.size(), 1u) << where;
    return found.size() == 1 ? found.front()->value : std::nan("");
}

std::string Exposition::text(const std::string& name, const std::map<std::string, std::string>& match) const
{
    std::vector<const Sample*> found = find(name, match);
    EXPECT_EQ(found.size(), 1u) << name;
    return found.size() == 1 ? found.front()->valueText : std::string();
}

Exposition parseExposition(const std::string& text)
{
    Exposition e;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty())
            continue;
        if (line.compare(0, 7, "# TYPE ") == 0 || line.compare(0, 7, "# HELP ") == 0) {
            std::string rest = line.substr(7);
            size_t sp = rest.find(' ');
            EXPECT_NE(sp, std::string::npos) << line;
            if (sp == std::string::npos)
                continue;
            (line[2] == 'T' ? e.types : e.helps)[rest.substr(0, sp)] = rest.substr(sp + 1);
            continue;
        }
        if (line[0] == '#')
            continue;
        Sample s;
        size_t i = 0;
        while (i < line.size() && line[i] != '{' && line[i] != ' ')
            ++i;
        s.name = line.substr(0, i);
        if (i < line.size() && line[i] == '{') {
            ++i;
            while (i < line.size() && line[i] != '}') {
                size_t eq = line.find('=', i);
                std::string key = line.substr(i, eq - i);
                i = eq + 2;   // past ="
                std::string value;
                while (i < line.size() && line[i] != '"') {
                    if (line[i] == '\\' && i + 1 < line.size()) {
                        ++i;
                        value += line[i] == 'n' ? '\n' : line[i];
                    } else {
                        value += line[i];
                    }
                    ++i;
                }
                ++i;   // past the closing quote
                if (i < line.size() && line[i] == ',')
                    ++i;
                s.labels[key] = value;
            }
            ++i;   // past }
        }
        EXPECT_TRUE(i < line.size() && line[i] == ' ') << line;
        s.valueText = i < line.size() ? line.substr(i + 1) : std::string();
        s.value = std::strtod(s.valueText.c_str(), nullptr);
        e.samples.push_back(s);
    }
    return e;
}

} // namespace qvexptest
