#ifndef QUELVANE_API_POLL_H
#define QUELVANE_API_POLL_H

#include <pthread.h>

#include <string>
#include <vector>

#include <quelvane/fileset.h>
#include <quelvane/merrno.h>

// Records of the inventory tree; defined in <quelvane/cluster_info.h>.
class ClusterInfo;
class NodeInfo;
class FilesystemInfo;
class StoragePoolInfo;
class DiskInfo;
class DiskServerInfo;
class DiskAccessInfo;
class MountedNodeInfo;
class PolicyInfo;
class RuleInfo;
class FilesystemPerf;
class ClusterStatus;

class TavrelWrapperUtils;
class CommandWrapperUtils;

// Bits of the polling scope handed to PollingHandler::init.
// POLL_LOCAL_NODE excludes the two others.
#define POLL_LOCAL_CLUSTER 0x1
#define POLL_ALL_CLUSTERS 0x2
#define POLL_LOCAL_NODE 0x4

// How the handler runs: MGMT_PROTOCOL_BACKGROUND (1) starts the command, timer
// and dispatch threads and the execution task queue; any other value runs
// without threads.
enum MgmtProtocol
{
    MGMT_PROTOCOL_DIRECT = 0,
    MGMT_PROTOCOL_BACKGROUND = 1
};

// One queued tool command of the dispatch thread.
class ExecutionTask
{
public:
    char cmd[256];                      // tool name, relative to the tool directory
    std::vector<char*> argItems;        // argument texts, owned, reserved for 1024
    int (*callback)(void*);             // called when the tool has ended; may be null
    void* callbackData;                 // argument of callback

    ExecutionTask(MErrno* err);
    ~ExecutionTask();

    char* setCmd(const char* cmd);
    void addArg(char* arg);
    void copyArgs(ExecutionTask* from);
    ExecutionTask& operator=(ExecutionTask& src);

    ExecutionTask(const ExecutionTask&) = delete;
};

// Result holder of an execution; cleared by its constructor.
class ExecutionResult
{
public:
    unsigned short status;

    ExecutionResult(MErrno* err);
    ~ExecutionResult();
};

// The polling handler: the library's central singleton (thePollingHandler).
class PollingHandler
{
public:
    TavrelWrapperUtils* tavrelWrapper;      // the request session (theTavrelWrapperUtils)
    pthread_t cmdThread;                    // background collector thread
    pthread_t timerThread;                  // 300-second ticker
    pthread_t dispatchThread;               // execution task runner
    CommandWrapperUtils* commandWrapper;    // theCommandWrapperUtils
    int terminate;                          // asks the command thread to end
    int timer_terminate;                    // asks the timer thread to end
    int execTerminate;                      // asks the dispatch thread to end
    ClusterInfo* recipe;                    // the cached inventory (owned)
    pthread_mutex_t pollingMutex;           // the polling lock, not recursive
    pthread_mutex_t execTaskMutex;          // guards execTaskList (protocol 1 only)
    std::vector<ExecutionTask*> execTaskList;  // pending tasks, reserved for 1024
    int debug;                              // debug level from init
    MgmtProtocol protocol;                  // from init
    int pid;                                // process id at construction; names the log
    int pollingScope;                       // POLL_* bits from init
    int nNodes;                             // node count of "tavrel ng cnt"

    // ---- lifecycle ----
    static MErrno init(MgmtProtocol protocol, int debug, int pollingScope);
    static void term();
    PollingHandler(MErrno* err, MgmtProtocol protocol, int debug, int pollingScope);
    ~PollingHandler();

    int getPollingLock();
    int releasePollingLock();
    int processCommand(const char* cmd);

    // ---- worker threads ----
    int waitTimerThread();
    int waitMainThread();
    int waitExecutionTask();
    int waitCmdThreadDone();
    int wakeupCmdThread();
    int wakeupTimerThread();
    int wakeupDispatchThread();
    int notifyCmdThreadDone();
    static void* cmdHandlerBody(void* handler);
    static void* timerHandlerBody(void* handler);

    // ---- recipe ----
    MErrno refreshClusterRecipe(int pollingScope);
    MErrno initNodeList();
    MErrno cleanupNodeList();
    MErrno initClusterRecipe(ClusterInfo* tree);
    MErrno copyRecipe(ClusterInfo* dst);
    MErrno getClusterInfo(ClusterInfo* dst);
    unsigned int getSdrfsGenNumber();
    unsigned int getSdrfsGenNumberFromRecipe();
    MErrno updateSdrfsGenNumber(unsigned int number);

    // ---- execution tasks ----
    MErrno addExecutionTask(const char* cmd, char* arg, int (*callback)(void*), void* callbackData);
    int getExecTaskFromList(ExecutionTask* dst);
    static void* dispatchHandlerBody(void* handler);

    // ---- tool output helpers ----
    int initBuf(char* buf);
    char* grabValue(char* line, int index, char* dst);
    std::vector<std::string> tokenHelper(char* line, int count);
    std::string buffer2string(char* buf, int len);
    char* getTimeStampInMilliseconds(char* in, char* out);

    // ---- cluster level collection ----
    MErrno updateClusterInfo(ClusterInfo* clusterP, int norefresh);
    MErrno getClusterStatus(ClusterStatus* status, int flags);
    int getDaemonState();
    int checkFailedNode();

    // ---- nodes ----
    int updateNodeInfo(ClusterInfo* clusterP, int noRefresh);

    // ---- filesystems ----
    int updateFilesystemInfo(ClusterInfo* clusterP, int withPerf);

    // ---- pools and disks ----
    int updateStoragePoolInfo(ClusterInfo* clusterP, char* fsName);
    int updateDiskInfo(ClusterInfo* clusterP, char* fsName, char* poolName, int withPerf);

    // ---- disk repository and free disks ----
    int updateDiskSDRInfo(int noRefresh);
    int updateDiskServerInfo(DiskInfo* diskP, char* serverList, char* backupServerList);
    int updateFreeDiskInfo(ClusterInfo* clusterP);

    // ---- disk paths ----
    int updateDiskAccessInfo(ClusterInfo* clusterP);
    int updateIndirectDiskAccessInfo(ClusterInfo* clusterP, DiskInfo* diskP);

    // ---- filesystem attributes and mounts ----
    MErrno updateFilesystemManagerInfo(ClusterInfo* clusterP);
    MErrno updateMountedNodeInfo(ClusterInfo* clusterP);
    MErrno updateFilesystemConfigInfo(ClusterInfo* clusterP);
    MErrno updateFilesystemMountPointInfo(ClusterInfo* clusterP);

    // ---- policies ----
    MErrno updatePolicyInfo(ClusterInfo* clusterP);
    MErrno fillRuleInfo(FilesystemInfo* fsP, PolicyInfo* policyP);

    // ---- statistics queries (caller's array; no lock taken) ----
    int cacheStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);
    int vfsStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);
    int iocStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);
    int threadUtilInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);
    int diskStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);
    int poolIoStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);
    int fsIoStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);
    int nsdServerStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);
    int pCacheStatsInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);
    int clusterCfgInfo(int, void* bufP, int bufSize, int* nNeeded, int* errP);

    // ---- fileset queries ----
    int getFileSets(char* fsName, std::vector<FileSet*>* out);
    int getFileSet(char* fsName, char* filesetName, FileSet* out);
    int getFileSets1(char* fsName, FileSet* array, int* len);

    PollingHandler(const PollingHandler&) = delete;
    PollingHandler& operator=(const PollingHandler&) = delete;
};

// The handler; null when there is none.
extern PollingHandler* thePollingHandler;

// Thread coordination, guarded by PollingHandler::pollingMutex. Latches, not
// counters; zero at load.
extern pthread_cond_t PollCond;
extern int PollConditionMet;
extern pthread_cond_t TimerPollCond;
extern int TimerPollConditionMet;
extern pthread_cond_t CmdPollCond;
extern int CmdPollConditionMet;
extern int CmdWaiters;
extern pthread_cond_t DispatchPollCond;
extern int DispatchPollConditionMet;

// Cluster manager name and address from the manager tool.
int getClusterManager(char* managerName, char* managerIpAddr);
// Node counts and quorum state from the configuration tool.
int getClusterNodesStatus(ClusterStatus* status);

#endif
