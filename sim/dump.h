#ifndef QUELVANE_SIM_DUMP_H
#define QUELVANE_SIM_DUMP_H

// The model as JSON: what "ctl dump" prints and what the tests compare the
// library's results with. The same conversion reads per-item overrides.

#include "sim/model.h"

#include <nlohmann/json.hpp>

#include <string>

namespace qvsim {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimNode, name, ipAddr, sdrField2005, manager, quorum, sdrField2008, sdrField2010, snmpCollector, gateway, inRepository, reportedByDaemon, adminState, status, failures, threadWait, healthy, diagnosis, version, pagePool, pfThreads, maxMBps, maxFilesToCache, maxStatCache, wkr1Threads, dmapiEventTimeout, dmapiMountTimeout, dmapiSessFailureTimeout, nsdServerWaitTimeWindowOnMount, nsdServerWaitTimeForMount, unmountOnDiskFail, platform, flags, nodeNumber, state)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimIo, tw, ltw, stw, b, ops)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimDiskIo, nodeName, rc, read, write)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimDiskPath, nodeName, device)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimDisk, name, usage, sdrField3007, sdrField3008, servers, backupServers, freePoolName, status, availability, diskWait, totalSpace, fullBlockFreeSpace, fragFreeSpace, reportedByDaemon, io, sizeKB, dstatus, iocnt, nsdId, paths)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimPool, name, status, nDisks, totalSpace, freeSpace, reportedByDaemon, disks)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimFsCounters, nodeIp, rc, br, bc, bw, r, c, w, oc, cc, rdc, wc, dir, iu, irc, idc, icc, sch, scm)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimPolicy, fileName, userName, installTime)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimFileset, name, id, rootInode, status, path, parentId, created, inodes, dataInKB, comment)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimQuota, type, name, id, blockUsage, blockQuota, blockLimit, blockInDoubt, blockGrace, filesUsage, filesQuota, filesLimit, filesInDoubt, filesGrace, remarks)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimFilesystem, name, reportedByDaemon, status, xstatus, readDuration, writeDuration, nSysMgt, mgrChangeCnt, totalSpace, totalInodes, freeSpace, freeInodes, fullBlockFreeSpace, fragFreeSpace, threadWait, diskWait, counters, managerIp, attributes, defaultMountPoint, mountedBy, policies, policyText, pools, filesets, quotas)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimPdisk, name, replacementPriority, paths, device, state, sizeBytes, fru, location)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimVdisk, name, raidCode, blockSizeKiB, sizeBytes, state, remarks)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimDeclusteredArray, name, needsService, spares, replaceThreshold, freeSpace, scrubDuration, backgroundTask, taskPercentComplete, taskPriority, pdisks, vdisks)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimRecoveryGroup, name, servers, id, arrays)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(SimCluster, clusterName, sdrField1002, sdrField1003, sdrField1008, sdrField1006, sdrField1007, sdrField1011, sdrField1004, sdrField1005, genNumber, maxBlockSize, maxFeature, distribTokenServer, failureDetectionTime, minMissedPingTimeout, maxMissedPingTimeout, clusterManagerIp, nodes, filesystems, freeDisks, simTime, daemonLibVersion, acls, recoveryGroups, nsdRaidConfig)

// The whole model as one JSON document (field names are the model's own).
std::string dumpModel(const SimCluster& c);
// Reads a document written by dumpModel. Throws nlohmann::json::exception.
SimCluster loadModel(const std::string& json);

} // namespace qvsim

#endif
