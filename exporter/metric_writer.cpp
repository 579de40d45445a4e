#include "exporter/metric_writer.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace qvexp {

std::string escapeLabelValue(const std::string& value)
{
    std::string out;
    out.reserve(value.size());
    for (char c : value) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '"')
            out += "\\\"";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

std::string escapeHelp(const std::string& text)
{
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

std::string formatDouble(double v)
{
    if (std::isnan(v))
        return "NaN";
    if (std::isinf(v))
        return v > 0 ? "+Inf" : "-Inf";
    // The shortest of the precisions that reads back to the same value.
    char buf[64];
    for (int precision = 6; precision <= 17; ++precision) {
        snprintf(buf, sizeof(buf), "%.*g", precision, v);
        if (std::strtod(buf, nullptr) == v)
            break;
    }
    return buf;
}

void MetricWriter::family(const std::string& name, const std::string& help, const char* type)
{
    name_ = name;
    out_ += "# HELP " + name + " " + escapeHelp(help) + "\n";
    out_ += "# TYPE " + name + " " + type + "\n";
}

void MetricWriter::writeSample(const Labels& labels, const std::string& value)
{
    out_ += name_;
    if (!labels.empty()) {
        out_ += '{';
        bool first = true;
        for (const auto& kv : labels) {
            if (!first)
                out_ += ',';
            first = false;
            out_ += kv.first + "=\"" + escapeLabelValue(kv.second) + "\"";
        }
        out_ += '}';
    }
    out_ += ' ' + value + '\n';
}

} // namespace qvexp
