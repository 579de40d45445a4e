#ifndef QUELVANE_CLI_NAMES_H
#define QUELVANE_CLI_NAMES_H

// Checks of the words that reach a tool's command line. The library places
// names, paths and comments on a shell command line without quoting, so a
// blank would split a word and a shell character would act; a word that
// begins with '-' would read as an option. Each check refuses such a word
// with CliError(kExitUsage) before anything runs.

#include <string>

namespace qvcli {

// Letters, digits, '.', '_' and '-'; not empty, not beginning with '-'.
// `what` names the word in the message ("filesystem name").
void checkName(const std::string& what, const std::string& value);
// As a name, with '/' allowed too.
void checkPath(const std::string& what, const std::string& value);
// Free text for a comment: letters, digits, blanks and . _ - , : / + = @.
void checkComment(const std::string& what, const std::string& value);

} // namespace qvcli

#endif
