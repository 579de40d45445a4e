#ifndef QUELVANE_SIM_CONFIG_H
#define QUELVANE_SIM_CONFIG_H

// The simulator's configuration file (TOML): the shape of the generated
// cluster and per-item overrides.
//
//   nodes = 8                 filesystems = 2        pools-per-fs = 2
//   disks-per-pool = 4        free-disks = 1         filesets-per-fs = 3
//   recovery-groups = 1       seed = 1               cluster = "simcluster"
//
//   [[node]]                  # any field of a node, found by its name
//   name = "node03"
//   status = "down"
//
//   [[filesystem]]            # any field of a filesystem, by name
//   [[disk]]                  # any field of a disk, by name

#include "sim/generate.h"
#include "sim/model.h"

#include <string>

namespace qvsim {

// Reads the shape parameters of `path` into *shape. False with a message.
bool readShape(const std::string& path, ClusterShape* shape, std::string* error);
// Applies the overrides of `path` to the generated model. False with a message.
bool applyOverrides(const std::string& path, SimCluster* c, std::string* error);

} // namespace qvsim

#endif
