#ifndef QUELVANE_SIM_CHANGES_H
#define QUELVANE_SIM_CHANGES_H

// Changes of the model: the control verbs, the changing tools and the flow
// of simulated time. Each change appends the event lines it causes.

#include "sim/model.h"
#include "sim/render.h"

#include <string>
#include <vector>

namespace qvsim {

// Applies the control verb `verb` (fail-node, recover-node, disk-down,
// disk-up, add-disk, delete-disk, create-fs, delete-fs, event, tick). False
// with a message in *error for an unknown verb or wrong arguments; the model
// is then unchanged.
bool applyControl(SimCluster& c, const std::string& verb, const std::vector<std::string>& args,
                  std::vector<std::string>* events, std::string* error);

// Runs a tool call that changes the model (fileset and quota changes, ACL
// and ownership changes). False when the call is not one of them.
bool changeByTool(SimCluster& c, const std::string& tool, const std::vector<std::string>& args,
                  ToolAnswer* answer, std::vector<std::string>* events);

// The fileset tools: listings (vklsfileset, kxlsfs) and changes (vkcrfileset,
// vklinkfileset, vkunlinkfileset, vkdelfileset, vkchfileset). False when the
// call is not one of theirs.
bool filesetListing(const SimCluster& c, const std::vector<std::string>& args, ToolAnswer* answer);
bool filesetCount(const SimCluster& c, const std::vector<std::string>& args, ToolAnswer* answer);
bool changeFileset(SimCluster& c, const std::string& tool, const std::vector<std::string>& args,
                   ToolAnswer* answer);

// The quota tools (vklsquota, vksetquota) and vkgetacl. False when the call
// is not one of theirs.
bool quotaTool(SimCluster& c, const std::string& tool, const std::vector<std::string>& args,
               ToolAnswer* answer);
// "vkputacl PATH" with the ACL text it read from its standard input.
bool putAcl(SimCluster& c, const std::vector<std::string>& args, const std::string& input,
            ToolAnswer* answer);

// The recovery group tools. False when the call is not one of theirs.
bool recoveryGroupTool(const SimCluster& c, const std::string& tool, const std::vector<std::string>& args,
                       ToolAnswer* answer);

// Advances simulated time by `seconds`: every I/O counter grows.
void advanceTime(SimCluster& c, long long seconds);

// Sums the disks' space into their pools and the pools' into the filesystem.
void recomputeSpace(SimFilesystem& fs);

} // namespace qvsim

#endif
