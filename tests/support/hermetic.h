#ifndef QUELVANE_TEST_HERMETIC_H
#define QUELVANE_TEST_HERMETIC_H

namespace qvtest {

// Opens /dev/null on any of descriptors 0 to 2 that is closed, so that no
// socket or file of a test can land on them.
void keepStandardDescriptorsOpen();

// Moves the process into a private mount namespace with fresh tmpfs over
// /var/vesk, /usr/kpx and /tmp, and creates /var/vesk/tavrel, /var/vesk/gen
// and /usr/kpx/vesk/bin. The directories of the test binary and of the
// library stay reachable. Ends the process with a clear message when the
// namespace cannot be made (the tests need root).
void enterHermeticNamespace();

} // namespace qvtest

#endif
