#ifndef QUELVANE_SIM_GENERATE_H
#define QUELVANE_SIM_GENERATE_H

// A realistic cluster generated deterministically from a few numbers and a
// seed: the same shape and seed always give the same model.

#include "sim/model.h"

#include <string>

namespace qvsim {

struct ClusterShape {
    int nodes = 8;
    int filesystems = 2;
    int poolsPerFs = 2;
    int disksPerPool = 4;
    int freeDisks = 1;
    int filesetsPerFs = 3;
    int recoveryGroups = 1;
    unsigned long long seed = 1;
    std::string clusterName = "simcluster";
};

SimCluster generateCluster(const ClusterShape& shape);

} // namespace qvsim

#endif
