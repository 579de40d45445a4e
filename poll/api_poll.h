#ifndef QUELVANE_API_POLL_H
#define QUELVANE_API_POLL_H

#include <pthread.h>

#include <string>
#include <vector>

#include <quelvane/export.h>
#include <quelvane/file_owner.h>
#include <quelvane/fileset.h>
#include <quelvane/merrno.h>
#include <quelvane/quota.h>

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
class QUELVANE_API ExecutionTask
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
class QUELVANE_API ExecutionResult
{
public:
    unsigned short status;

    ExecutionResult(MErrno* err);
    ~ExecutionResult();
};

// The polling handler: the library's central singleton (thePollingHandler).
class QUELVANE_API PollingHandler
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
    // Queues the tool `cmd` (a name in the tool directory) with its argument
    // text `arg` for the dispatch thread, which runs "TOOLDIR/CMD ARG 2>&1"
    // and then calls callback(callbackData). A task that could not run with
    // exactly the words given is refused: a null or empty cmd, a null arg, or
    // either one longer than 255 bytes. Nothing is queued then, an ERROR line
    // names the reason in the log, and the result is EINVAL.
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

    // ---- statistics updates (records hung on the inventory) ----
    // Each takes pollingMutex itself (the caller must not hold it), fills the
    // records of the recipe's nodes from one request, and brings the
    // records of clusterP, node by node in the recipe's order, into line:
    // clusterP must have the recipe's nodes in the recipe's order (as the
    // collectors leave it), else std::out_of_range is thrown with the lock
    // still held. 0, 1 (a node has failed, or no memory), or the request's
    // error.
    int updateCacheStatsInfo(ClusterInfo* clusterP);     // NodeInfo::cacheStats
    int updateIocStatsInfo(ClusterInfo* clusterP);       // NodeInfo::iocStats
    int updateVfsStatsInfo(ClusterInfo* clusterP);       // NodeInfo::vfsStats
    // NodeInfo::threadUtil; null on a node that failed or is not up.
    int updateThreadUtilInfo(ClusterInfo* clusterP);
    int updateVerbsClientInfo(ClusterInfo* clusterP);    // NodeInfo::verbsClient
    int updateVerbsServerInfo(ClusterInfo* clusterP);    // NodeInfo::verbsServer
    int updateKxcommCfgInfo(ClusterInfo* clusterP);      // NodeInfo::kxcommCfg
    // NodeInfo::pCacheItems, rebuilt on every node that a good line names.
    int updatePCacheStatsInfo(ClusterInfo* clusterP);
    // ClusterInfo::clusterCfgItems: both trees' lists hold the same records.
    int updateClusterCfgInfo(ClusterInfo* clusterP);

    // ---- RPC time series updates ----
    // timeUnit 0 keeps all the daemon announces, 1 seconds (count 1 to 60),
    // 2 minutes (1 to 60), 3 hours (1 to 24), 4 days (1 to 30); anything
    // else gives 1 at once. Locking and clusterP as for the updates above.
    // clusterP's rpcUtil is a copy holding sample 0 of each series only;
    // its rpcSizeUtil, rpcMsgUtil and rpcRawUtil share the recipe's series.
    int updateRPCUtilInfo(ClusterInfo* clusterP, short timeUnit, short count);
    int updateRPCSizeUtilInfo(ClusterInfo* clusterP, short timeUnit, short count);
    int updateRPCMsgUtilInfo(ClusterInfo* clusterP, short timeUnit, short count);
    int updateRPCUtilInfoPerSec(ClusterInfo* clusterP);
    int updateRPCRawUtilInfo(ClusterInfo* clusterP);

    // ---- fileset queries ----
    int getFileSets(char* fsName, std::vector<FileSet*>* out);
    int getFileSet(char* fsName, char* filesetName, FileSet* out);
    int getFileSets1(char* fsName, FileSet* array, int* len);

    // ---- administration ----
    // Each runs one administration tool through the shell and takes no lock
    // (but changeOwnerAndOrGroup). Names, paths and comments are placed on
    // the command line as they stand, WITHOUT quoting (but the comment of
    // editFileset): pass only trusted names; a blank splits an argument and
    // shell characters act. Everything the tool prints is appended to *msg
    // (never cleared); the result is 0, 1 when the shell could not be
    // started, or the tool's exit status (bits 8 to 15 of pclose).

    // "vkcrfileset FS NAME [-t COMMENT] 2>&1", found through the search path;
    // the comment is left out when noComment is true. Also prints the tool's
    // words and a failure to stderr.
    int createFileSet(FileSet fs, std::string* msg, bool noComment);
    // Links fs.name at fs.path ("-J PATH"), or at its default place when the
    // path is empty.
    int linkFileSet(FileSet fs, std::string* msg);
    // Unlinks by fileset name (byName) or by junction path; force adds "-f".
    int unlinkFileSet(const char* fsName, const char* target, bool byName, bool force,
                      std::string* msg);
    int deleteFileSet(FileSet fs, bool force, std::string* msg);
    // Changes a fileset named by `target` (a junction path when targetKind is
    // "junction"): a new name (-j) and a comment (-t, quoted); null arguments
    // are left out.
    int editFileset(char* fsName, char* targetKind, char* target, char* newName, char* comment,
                    std::string* msg);

    // Reads one quota: type 1 group, 2 user, 3 fileset, any other user. 0, 1
    // (shell not started, or no line printed), or the tool's exit status.
    // The tool's error output goes to the process's stderr.
    int getQuota(int type, const char* fsName, const char* name, Quota* quota);
    // Sets quota limits with "vksetquota" (found through the search path):
    // type "group", "user" or "fileset"; a null limit stays as it is; the
    // small limits are in kilobytes. `reserved` is not read.
    int editQuota(char* fsName, char* type, char* name, unsigned long long* optS,
                  unsigned long long* optH, unsigned long long* optSmallS,
                  unsigned long long* optSmallH, char* reserved, std::string* msg);

    // "chown OWNER[:GROUP] PATH". Takes the polling lock while it reads the
    // tool's output: the caller must not hold it. The tool's words go to the
    // log and to the process's stderr.
    int changeOwnerAndOrGroup(FileOrDirOwner target);
    // Gives target.path the owner and group of source.path.
    int changeFileOrDirOwnership(FileOrDirOwner source, FileOrDirOwner target, std::string* msg);
    // Copies the ACL of source.path to target.path ("vkgetacl | vkputacl");
    // aclType 0 nfs4, 1 posix, 2 native, any other the tool's default. The
    // status is that of the last stage.
    int changeFileOrDirACL(FileOrDirOwner source, FileOrDirOwner target, int aclType,
                           std::string* msg);
    // The home directory of `user` from /etc/passwd into `path` (which must
    // hold 1024 bytes); an unknown user leaves it as it was. 0, or 1.
    int getHomePath(char* user, char* path);
    // The primary group id of `user` ("id --group"); an unknown user leaves
    // *id as it was and gives 0. 0, or 1.
    int getPrimaryId(char* user, unsigned int* id);

    PollingHandler(const PollingHandler&) = delete;
    PollingHandler& operator=(const PollingHandler&) = delete;
};

// The handler; null when there is none.
extern QUELVANE_API PollingHandler* thePollingHandler;

// Thread coordination, guarded by PollingHandler::pollingMutex. Latches, not
// counters; zero at load. TimerPollConditionMet is also read without the lock
// (by the disk repository scan): every access to it, under the lock or not,
// is an atomic load or store (__atomic_load_n / __atomic_store_n).
extern QUELVANE_API pthread_cond_t PollCond;
extern QUELVANE_API int PollConditionMet;
extern QUELVANE_API pthread_cond_t TimerPollCond;
extern QUELVANE_API int TimerPollConditionMet;
extern QUELVANE_API pthread_cond_t CmdPollCond;
extern QUELVANE_API int CmdPollConditionMet;
extern QUELVANE_API int CmdWaiters;
extern QUELVANE_API pthread_cond_t DispatchPollCond;
extern QUELVANE_API int DispatchPollConditionMet;

// Cluster manager name and address from the manager tool.
QUELVANE_API int getClusterManager(char* managerName, char* managerIpAddr);
// Node counts and quorum state from the configuration tool.
QUELVANE_API int getClusterNodesStatus(ClusterStatus* status);

#endif
