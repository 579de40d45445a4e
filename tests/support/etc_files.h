#ifndef QUELVANE_TEST_ETC_FILES_H
#define QUELVANE_TEST_ETC_FILES_H

#include <string>

namespace qvtest {

// Puts a file of the test's over "/etc/NAME" (passwd, group) for the rest of
// the test process: the text is written under /tmp and bound over the real
// file inside the test's private mount namespace, so that chown, id and awk
// see the test's users and groups and the machine's files stay untouched.
void bindOverEtc(const std::string& name, const std::string& content);

} // namespace qvtest

#endif
