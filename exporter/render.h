#ifndef QUELVANE_EXPORTER_RENDER_H
#define QUELVANE_EXPORTER_RENDER_H

// The metric families of the exporter, rendered from the library's records.
// Each function writes the families of one collector; a family belongs to one
// function only, so that sections can be kept and swapped independently.

#include "exporter/metric_writer.h"

#include <quelvane/quelvane.h>

#include <memory>
#include <string>
#include <vector>

namespace qvexp {

// What the cluster manager and configuration tools say of the cluster as a
// whole (getClusterManager, getClusterNodesStatus).
struct QuorumView {
    std::string managerName;
    std::string managerIp;
    int nodesDefined = 0;
    int quorumNodesDefined = 0;
    int quorumNodesActive = 0;
    bool quorumAchieved = false;
};

// Fileset counts of one filesystem.
struct FilesetCount {
    std::string filesystem;
    int total = 0;
    int linked = 0;
};

// One collector's last run, for the exporter's own families.
struct CollectorHealth {
    std::string name;
    double seconds = 0.0;           // duration of its last run
    bool ok = false;                // its last run succeeded
    unsigned long long errors = 0;  // failed runs so far
};

// The node roles text ("manager quorum ") as a comma-separated label value.
std::string rolesLabel(const char* roles);

// Cluster info and node state: quelvane_cluster_*, quelvane_node_*.
void renderCluster(MetricWriter& w, ClusterInfo* tree, const QuorumView& quorum);
// Filesystem capacity, inodes, counters and per-node counters.
void renderFilesystems(MetricWriter& w, ClusterInfo* tree);
// Pools, their disks and the free disks.
void renderDisks(MetricWriter& w, ClusterInfo* tree);
void renderFilesets(MetricWriter& w, const std::vector<FilesetCount>& counts);
// Cache, VFS and thread pool statistics hung on the tree's nodes.
void renderStats(MetricWriter& w, ClusterInfo* tree);
void renderRecoveryGroups(MetricWriter& w, const std::vector<std::unique_ptr<orluRecoveryGroup>>& groups);
void renderHealth(MetricWriter& w, const std::vector<CollectorHealth>& collectors, bool lastPollOk,
                  double lastPollTimestamp, unsigned long long polls);

// The daemon's event words, by event number (0 to 31).
const char* eventKind(int type);
void renderEvents(MetricWriter& w, const unsigned long long counts[32], bool connected);

} // namespace qvexp

#endif
