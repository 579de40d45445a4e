#ifndef QUELVANE_EXPORTER_METRIC_WRITER_H
#define QUELVANE_EXPORTER_METRIC_WRITER_H

// Prometheus text exposition (format 0.0.4): a family's HELP and TYPE lines,
// then its samples, each a name, an optional label set and a value.

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace qvexp {

using Labels = std::vector<std::pair<std::string, std::string>>;

// Backslash, double quote and newline escaped as the format wants them.
std::string escapeLabelValue(const std::string& value);
// HELP text: backslash and newline escaped.
std::string escapeHelp(const std::string& text);
// A floating point value: shortest exact text, "NaN", "+Inf", "-Inf".
std::string formatDouble(double v);

class MetricWriter
{
public:
    // Starts a family; its samples follow until the next family.
    // `type` is "gauge" or "counter".
    void family(const std::string& name, const std::string& help, const char* type);

    // A sample of the current family.
    template <typename T>
    void sample(const Labels& labels, T value)
    {
        static_assert(std::is_arithmetic<T>::value, "a number");
        if constexpr (std::is_same<T, bool>::value)
            writeSample(labels, value ? std::string("1") : std::string("0"));
        else if constexpr (std::is_integral<T>::value)
            writeSample(labels, std::to_string(value));
        else
            writeSample(labels, formatDouble(static_cast<double>(value)));
    }

    const std::string& text() const { return out_; }
    std::string take() { return std::move(out_); }

private:
    void writeSample(const Labels& labels, const std::string& value);

    std::string out_;
    std::string name_;
};

} // namespace qvexp

#endif
