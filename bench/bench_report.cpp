#include "bench_report.h"

#include "support/hermetic.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

namespace qvbench {

Options parseOptions(int argc, char** argv, const char* usage)
{
    Options o;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--json") == 0 && i + 1 < argc) {
            o.jsonPath = argv[++i];
            o.jsonFile = fopen(o.jsonPath.c_str(), "w");
            if (o.jsonFile == nullptr) {
                fprintf(stderr, "cannot write %s: %s\n", o.jsonPath.c_str(), strerror(errno));
                exit(2);
            }
        } else if (strcmp(argv[i], "--rounds") == 0 && i + 1 < argc) {
            o.rounds = atoi(argv[++i]);
            if (o.rounds < 1) {
                fprintf(stderr, "%s", usage);
                exit(2);
            }
        } else if (strcmp(argv[i], "--lines") == 0 && i + 1 < argc) {
            o.lines = atol(argv[++i]);
            if (o.lines < 1) {
                fprintf(stderr, "%s", usage);
                exit(2);
            }
        } else {
            fprintf(stderr, "%s", usage);
            exit(strcmp(argv[i], "--help") == 0 ? 0 : 2);
        }
    }
    return o;
}

void enterSandbox()
{
    qvtest::keepStandardDescriptorsOpen();
    qvtest::enterHermeticNamespace();
}

double nowMs()
{
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    size_t n = values.size();
    return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

std::string machineText()
{
    std::string model = "unknown CPU";
    std::ifstream in("/proc/cpuinfo");
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("model name", 0) == 0) {
            size_t colon = line.find(':');
            if (colon != std::string::npos)
                model = line.substr(line.find_first_not_of(' ', colon + 1));
            break;
        }
    }
    return std::to_string(std::thread::hardware_concurrency()) + " cores, " + model;
}

void printTable(const std::vector<std::string>& header, const std::vector<std::vector<std::string>>& rows)
{
    std::vector<size_t> width(header.size());
    for (size_t c = 0; c < header.size(); ++c) {
        width[c] = header[c].size();
        for (const auto& r : rows)
            width[c] = std::max(width[c], c < r.size() ? r[c].size() : 0);
    }
    auto printRow = [&](const std::vector<std::string>& r) {
        std::string line = "|";
        for (size_t c = 0; c < header.size(); ++c) {
            std::string cell = c < r.size() ? r[c] : "";
            // Text left, figures right.
            bool number = !cell.empty() && (isdigit(static_cast<unsigned char>(cell[0])) || cell[0] == '-');
            std::string pad(width[c] - cell.size(), ' ');
            line += " " + (number ? pad + cell : cell + pad) + " |";
        }
        printf("%s\n", line.c_str());
    };
    printRow(header);
    std::string rule = "|";
    for (size_t w : width)
        rule += std::string(w + 2, '-') + "|";
    printf("%s\n", rule.c_str());
    for (const auto& r : rows)
        printRow(r);
}

std::string fixed(double value, int digits)
{
    char buf[64];
    snprintf(buf, sizeof(buf), "%.*f", digits, value);
    return buf;
}

std::string jsonString(const std::string& text)
{
    std::string out = "\"";
    for (char ch : text) {
        if (ch == '"' || ch == '\\')
            out += '\\';
        out += ch;
    }
    return out + "\"";
}

std::string jsonNumbers(const std::vector<double>& values)
{
    std::string out = "[";
    for (size_t i = 0; i < values.size(); ++i)
        out += (i ? ", " : "") + fixed(values[i], 4);
    return out + "]";
}

bool writeJson(const Options& options, const std::string& json)
{
    if (options.jsonFile == nullptr)
        return true;
    bool ok = fputs(json.c_str(), options.jsonFile) >= 0;
    ok = fclose(options.jsonFile) == 0 && ok;
    if (!ok) {
        fprintf(stderr, "cannot write %s\n", options.jsonPath.c_str());
        return false;
    }
    return true;
}

} // namespace qvbench
