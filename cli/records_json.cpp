#include "cli/records_json.h"

namespace qvcli {

json clusterJson(ClusterInfo* c)
{
    json j;
    QVCLI_FIELD(j, c, clusterName);
    QVCLI_FIELD(j, c, sdrField1002);
    QVCLI_FIELD(j, c, sdrField1003);
    QVCLI_FIELD(j, c, maxFeature);
    QVCLI_FIELD(j, c, sdrField1008);
    QVCLI_FIELD(j, c, sdrField1006);
    QVCLI_FIELD(j, c, sdrField1007);
    QVCLI_FIELD(j, c, sdrField1004);
    QVCLI_FIELD(j, c, sdrField1005);
    QVCLI_FIELD(j, c, maxBlockSize);
    QVCLI_FIELD(j, c, distribTokenServer);
    QVCLI_FIELD(j, c, failureDetectionTime);
    QVCLI_FIELD(j, c, sdrField1011);
    QVCLI_FIELD(j, c, minMissedPingTimeout);
    QVCLI_FIELD(j, c, maxMissedPingTimeout);
    QVCLI_FIELD(j, c, sdrfsGenNumber);
    return j;
}

json clusterStatusJson(const ClusterStatus& s)
{
    json j;
    const ClusterStatus* p = &s;
    QVCLI_FIELD(j, p, managerName);
    QVCLI_FIELD(j, p, managerIpAddr);
    QVCLI_FIELD(j, p, nodesDefined);
    QVCLI_FIELD(j, p, localNodesActive);
    QVCLI_FIELD(j, p, remoteNodesJoined);
    QVCLI_FIELD(j, p, quorumNodesDefined);
    QVCLI_FIELD(j, p, quorumNodesActive);
    QVCLI_FIELD(j, p, quorum);
    QVCLI_FIELD(j, p, quorumAchieved);
    return j;
}

json nodeJson(NodeInfo* n)
{
    json j;
    QVCLI_FIELD(j, n, name);
    QVCLI_FIELD(j, n, ipAddr);
    QVCLI_FIELD(j, n, platform);
    QVCLI_FIELD(j, n, endian);
    QVCLI_FIELD(j, n, roles);
    QVCLI_FIELD(j, n, sdrField2010);
    QVCLI_FIELD(j, n, adminState);
    QVCLI_FIELD(j, n, status);
    QVCLI_FIELD(j, n, version);
    QVCLI_FIELD(j, n, failures);
    QVCLI_FIELD(j, n, threadWait);
    QVCLI_FIELD(j, n, healthy);
    QVCLI_FIELD(j, n, diagnosis);
    QVCLI_FIELD(j, n, pagePool);
    QVCLI_FIELD(j, n, pfThreads);
    QVCLI_FIELD(j, n, maxMBps);
    QVCLI_FIELD(j, n, maxFilesToCache);
    QVCLI_FIELD(j, n, maxStatCache);
    QVCLI_FIELD(j, n, wkr1Threads);
    QVCLI_FIELD(j, n, dmapiEventTimeout);
    QVCLI_FIELD(j, n, dmapiMountTimeout);
    QVCLI_FIELD(j, n, dmapiSessFailureTimeout);
    QVCLI_FIELD(j, n, nsdServerWaitTimeWindowOnMount);
    QVCLI_FIELD(j, n, nsdServerWaitTimeForMount);
    QVCLI_FIELD(j, n, unmountOnDiskFail);
    return j;
}

json filesystemJson(FilesystemInfo* f)
{
    json j;
    QVCLI_FIELD(j, f, name);
    QVCLI_FIELD(j, f, manager);
    QVCLI_FIELD(j, f, status);
    QVCLI_FIELD(j, f, xstatus);
    QVCLI_FIELD(j, f, readDuration);
    QVCLI_FIELD(j, f, writeDuration);
    QVCLI_FIELD(j, f, nSysMgt);
    QVCLI_FIELD(j, f, mgrChangeCnt);
    QVCLI_FIELD(j, f, totalSpace);
    QVCLI_FIELD(j, f, totalInodes);
    QVCLI_FIELD(j, f, freeSpace);
    QVCLI_FIELD(j, f, freeInodes);
    QVCLI_FIELD(j, f, fullBlockFreeSpace);
    QVCLI_FIELD(j, f, fragFreeSpace);
    QVCLI_FIELD(j, f, threadWait);
    QVCLI_FIELD(j, f, diskWait);
    QVCLI_FIELD(j, f, minFragmentSize);
    QVCLI_FIELD(j, f, inodeSize);
    QVCLI_FIELD(j, f, indirectBlockSize);
    QVCLI_FIELD(j, f, defaultMetadataReplicas);
    QVCLI_FIELD(j, f, maxMetadataReplicas);
    QVCLI_FIELD(j, f, defaultDataReplicas);
    QVCLI_FIELD(j, f, maxDataReplicas);
    QVCLI_FIELD(j, f, blockAllocationType);
    QVCLI_FIELD(j, f, fileLockingSemantics);
    QVCLI_FIELD(j, f, ACLSemantics);
    QVCLI_FIELD(j, f, estimatedAverageFilesize);
    QVCLI_FIELD(j, f, numNodes);
    QVCLI_FIELD(j, f, blockSize);
    QVCLI_FIELD(j, f, quotasEnforced);
    QVCLI_FIELD(j, f, defaultQuotasEnabled);
    QVCLI_FIELD(j, f, maxNumberOfInodes);
    QVCLI_FIELD(j, f, filesystemVersion);
    QVCLI_FIELD(j, f, supportForLargeLUNs);
    QVCLI_FIELD(j, f, DMAPIEnabled);
    QVCLI_FIELD(j, f, exactMtime);
    QVCLI_FIELD(j, f, suppressAtime);
    QVCLI_FIELD(j, f, automaticMountOption);
    QVCLI_FIELD(j, f, additionalMountOptions);
    QVCLI_FIELD(j, f, defaultMountPoint);
    QVCLI_FIELD(j, f, bytesRead);
    QVCLI_FIELD(j, f, bytesCache);
    QVCLI_FIELD(j, f, bytesWritten);
    QVCLI_FIELD(j, f, reads);
    QVCLI_FIELD(j, f, caches);
    QVCLI_FIELD(j, f, writes);
    QVCLI_FIELD(j, f, openCalls);
    QVCLI_FIELD(j, f, closeCalls);
    QVCLI_FIELD(j, f, readCalls);
    QVCLI_FIELD(j, f, writeCalls);
    QVCLI_FIELD(j, f, dirCalls);
    QVCLI_FIELD(j, f, inodeUpdates);
    QVCLI_FIELD(j, f, ircCount);
    QVCLI_FIELD(j, f, idcCount);
    QVCLI_FIELD(j, f, iccCount);
    QVCLI_FIELD(j, f, schCount);
    QVCLI_FIELD(j, f, scmCount);
    QVCLI_FIELD(j, f, perfInstances);
    return j;
}

json poolJson(StoragePoolInfo* p)
{
    json j;
    QVCLI_FIELD(j, p, name);
    QVCLI_FIELD(j, p, status);
    QVCLI_FIELD(j, p, nDisks);
    QVCLI_FIELD(j, p, totalSpace);
    QVCLI_FIELD(j, p, freeSpace);
    QVCLI_FIELD(j, p, bytesRead);
    QVCLI_FIELD(j, p, bytesWritten);
    QVCLI_FIELD(j, p, readTime);
    QVCLI_FIELD(j, p, writeTime);
    return j;
}

json diskJson(DiskInfo* d)
{
    json j;
    QVCLI_FIELD(j, d, name);
    QVCLI_FIELD(j, d, isFree);
    QVCLI_FIELD(j, d, nodeName);
    QVCLI_FIELD(j, d, poolName);
    QVCLI_FIELD(j, d, status);
    QVCLI_FIELD(j, d, availability);
    QVCLI_FIELD(j, d, sdrField3007);
    QVCLI_FIELD(j, d, sdrField3008);
    QVCLI_FIELD(j, d, holdsMetadata);
    QVCLI_FIELD(j, d, holdsData);
    QVCLI_FIELD(j, d, diskWait);
    QVCLI_FIELD(j, d, totalSpace);
    QVCLI_FIELD(j, d, fullBlockFreeSpace);
    QVCLI_FIELD(j, d, fragFreeSpace);
    QVCLI_FIELD(j, d, readTime);
    QVCLI_FIELD(j, d, writeTime);
    QVCLI_FIELD(j, d, longestReadTime);
    QVCLI_FIELD(j, d, longestWriteTime);
    QVCLI_FIELD(j, d, shortestReadTime);
    QVCLI_FIELD(j, d, shortestWriteTime);
    QVCLI_FIELD(j, d, bytesRead);
    QVCLI_FIELD(j, d, bytesWritten);
    QVCLI_FIELD(j, d, readOps);
    QVCLI_FIELD(j, d, writeOps);
    QVCLI_FIELD(j, d, perfInstanceCount);
    json servers = json::array();
    for (DiskServerInfo* s : d->serverItems)
        servers.push_back(text(s->name));
    json backups = json::array();
    for (DiskServerInfo* s : d->backupServerItems)
        backups.push_back(text(s->name));
    j["servers"] = servers;
    j["backupServers"] = backups;
    return j;
}

json mountJson(MountedNodeInfo* m)
{
    json j;
    QVCLI_FIELD(j, m, nodeName);
    QVCLI_FIELD(j, m, nodeIpAddr);
    return j;
}

json policyJson(PolicyInfo* p)
{
    json j;
    QVCLI_FIELD(j, p, name);
    QVCLI_FIELD(j, p, userName);
    QVCLI_FIELD(j, p, installTime);
    json rules = json::array();
    for (RuleInfo* r : p->ruleItems) {
        json rule;
        QVCLI_FIELD(rule, r, name);
        QVCLI_FIELD(rule, r, desc);
        rules.push_back(rule);
    }
    j["rules"] = rules;
    return j;
}

json filesetJson(const FileSet& f)
{
    json j;
    const FileSet* p = &f;
    QVCLI_FIELD(j, p, name);
    QVCLI_FIELD(j, p, fsName);
    QVCLI_FIELD(j, p, column3);
    QVCLI_FIELD(j, p, column8);
    QVCLI_FIELD(j, p, column9);
    QVCLI_FIELD(j, p, column10);
    QVCLI_FIELD(j, p, path);
    QVCLI_FIELD(j, p, column12);
    QVCLI_FIELD(j, p, created);
    QVCLI_FIELD(j, p, column14);
    QVCLI_FIELD(j, p, column15);
    QVCLI_FIELD(j, p, comment);
    return j;
}

json quotaJson(const Quota& q)
{
    json j;
    const Quota* p = &q;
    QVCLI_FIELD(j, p, column2);
    QVCLI_FIELD(j, p, column3);
    QVCLI_FIELD(j, p, column6);
    QVCLI_FIELD(j, p, quotaType);
    QVCLI_FIELD(j, p, column8);
    QVCLI_FIELD(j, p, column9);
    QVCLI_FIELD(j, p, column10);
    QVCLI_FIELD(j, p, column11);
    QVCLI_FIELD(j, p, column12);
    QVCLI_FIELD(j, p, column13);
    QVCLI_FIELD(j, p, column14);
    QVCLI_FIELD(j, p, column15);
    QVCLI_FIELD(j, p, column16);
    QVCLI_FIELD(j, p, column17);
    QVCLI_FIELD(j, p, column18);
    QVCLI_FIELD(j, p, column19);
    QVCLI_FIELD(j, p, column20);
    return j;
}

json recoveryGroupJson(orluRecoveryGroup* rg, bool withDisks)
{
    json j;
    QVCLI_FIELD(j, rg, rgName);
    QVCLI_FIELD(j, rg, rgActiveServer);
    QVCLI_FIELD(j, rg, rgServers);
    QVCLI_FIELD(j, rg, rgId);
    QVCLI_FIELD(j, rg, nDeclusteredArrays);
    QVCLI_FIELD(j, rg, nVdisks);
    QVCLI_FIELD(j, rg, nPdisks);
    json arrays = json::array();
    for (int i = 0; i < rg->nDeclusteredArrays && i < 16; ++i) {
        orluRecoveryGroupDeclusteredArray* da = rg->getDeclusteredArrayP(i);
        if (da == nullptr)
            break;
        json a;
        QVCLI_FIELD(a, da, daName);
        QVCLI_FIELD(a, da, daNeedsService);
        QVCLI_FIELD(a, da, daVdisks);
        QVCLI_FIELD(a, da, daPdisks);
        QVCLI_FIELD(a, da, daSpares);
        QVCLI_FIELD(a, da, daReplaceThreshold);
        QVCLI_FIELD(a, da, daFreeSpace);
        QVCLI_FIELD(a, da, daScrubDuration);
        QVCLI_FIELD(a, da, daBackgroundTask);
        QVCLI_FIELD(a, da, daTaskPercentComplete);
        QVCLI_FIELD(a, da, daTaskPriority);
        if (withDisks) {
            json pdisks = json::array();
            for (int k = 0; k < da->daPdisks; ++k) {
                orluDeclusteredArrayPdisk* p = da->getDeclusteredArrayPdiskP(k);
                if (p == nullptr)
                    break;
                json pj;
                QVCLI_FIELD(pj, p, pdiskName);
                QVCLI_FIELD(pj, p, pdiskValue);
                QVCLI_FIELD(pj, p, pdiskText1);
                QVCLI_FIELD(pj, p, pdiskText2);
                QVCLI_FIELD(pj, p, pdiskNumber);
                QVCLI_FIELD(pj, p, pdiskText3);
                QVCLI_FIELD(pj, p, pdiskText4);
                pdisks.push_back(pj);
            }
            json vdisks = json::array();
            for (int k = 0; k < da->daVdisks; ++k) {
                orluDeclusteredArrayVdisk* v = da->getDeclusteredArrayVdiskP(k);
                if (v == nullptr)
                    break;
                json vj;
                QVCLI_FIELD(vj, v, vdiskName);
                QVCLI_FIELD(vj, v, vdiskText1);
                QVCLI_FIELD(vj, v, vdiskValue);
                QVCLI_FIELD(vj, v, vdiskNumber);
                QVCLI_FIELD(vj, v, vdiskText2);
                QVCLI_FIELD(vj, v, vdiskText3);
                vdisks.push_back(vj);
            }
            a["pdisks"] = pdisks;
            a["vdisks"] = vdisks;
        }
        arrays.push_back(a);
    }
    j["declusteredArrays"] = arrays;
    return j;
}

std::string documentText(const json& doc)
{
    return doc.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace qvcli
