#ifndef QUELVANE_ADMIN_LINES_INTERNAL_H
#define QUELVANE_ADMIN_LINES_INTERNAL_H

// Line readers of the administration tools, callable on one line alone.

#include <quelvane/quota.h>

#include <string>
#include <vector>

namespace qv {

// Stores the 21 tokens of one quota line (tokenHelper(line, 21)) into `q`:
// numbers overwritten, texts appended, quotaType set to `type`. Gives the
// number of fields stored.
int storeQuotaTokens(const std::vector<std::string>& tokens, int type, Quota* q);

}  // namespace qv

#endif
