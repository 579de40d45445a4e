#ifndef QUELVANE_EXPORTER_TESTS_EXPOSITION_H
#define QUELVANE_EXPORTER_TESTS_EXPOSITION_H

// A reader of the text exposition for the tests: families by their TYPE
// lines, samples by name and labels.

#include <map>
#include <string>
#include <vector>

namespace qvexptest {

struct Sample {
    std::string name;
    std::map<std::string, std::string> labels;
    double value = 0.0;
    std::string valueText;
};

struct Exposition {
    std::map<std::string, std::string> types;   // family name -> type
    std::map<std::string, std::string> helps;   // family name -> help text
    std::vector<Sample> samples;

    // Samples of `name` whose labels include every pair of `match`.
    std::vector<const Sample*> find(const std::string& name,
                                    const std::map<std::string, std::string>& match = {}) const;
    // The value of the one sample that matches; NaN (and a test failure)
    // when there is not exactly one.
    double value(const std::string& name, const std::map<std::string, std::string>& match = {}) const;
    // The exact text of that sample's value.
    std::string text(const std::string& name, const std::map<std::string, std::string>& match = {}) const;
};

// Fails the current test on a line it cannot read.
Exposition parseExposition(const std::string& text);

} // namespace qvexptest

#endif
