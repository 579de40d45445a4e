#ifndef QUELVANE_RECOVERY_GROUP_H
#define QUELVANE_RECOVERY_GROUP_H

// Recovery groups: plain records of a cluster's declustered-array recovery
// groups and their NSD RAID configuration, and the seven free functions that
// fill them from the recovery group tools.
//
// Order of use: orluRGDefined(); when it gives more than 0, an array of that
// many orluRecoveryGroupSdrInfo for getNsdRAIDSdrInfo; then for each group an
// orluRecoveryGroup named with updateRgSdrInfo, filled by
// getRecoveryGroupSummary and then getRecoveryGroupDeclusteredArrays.
//
// Text fields are zero-terminated arrays of the sizes below; a value must fit
// with its terminator (the tools' texts are not checked). The functions take
// no lock and are meant for one caller at a time. Names are placed on the
// tools' command lines as they stand, without quoting: pass only trusted
// names.

#include <cstdint>

#include <quelvane/export.h>

// One recovery group as the cluster repository lists it.
class QUELVANE_API orluRecoveryGroupSdrInfo
{
public:
    char rgName[64];
    char rgServers[128];
    char rgId[20];              // third text column of the repository line

    orluRecoveryGroupSdrInfo();
    ~orluRecoveryGroupSdrInfo();
    void init();
    // Copies each non-null argument.
    void update(char* name, char* servers, char* id);
    // "orluRecoveryGroupSdrInfo: %s:%s:%s\n" on stdout.
    void print_orluRecoveryGroupSdrInfo();
};

// I/O counters of a virtual disk: 80 bytes that init clears. No query fills
// them; their meaning is the application's.
class QUELVANE_API orluDeclusteredArrayVdiskIoStats
{
public:
    unsigned long long counters[10];

    orluDeclusteredArrayVdiskIoStats();
    void init();
};

// One physical disk of a declustered array (a "vklspdisk" line).
class QUELVANE_API orluDeclusteredArrayPdisk
{
public:
    char pdiskName[64];                 // column 8
    int pdiskValue;                     // column 7, a number cut toward zero
    char pdiskText1[64];                // column 9
    char pdiskText2[160];               // column 12
    unsigned long long pdiskNumber;     // column 13
    char pdiskText3[32];                // column 14
    char pdiskText4[32];                // column 15

    orluDeclusteredArrayPdisk();
    ~orluDeclusteredArrayPdisk();
    void init();
    // Copies every argument; none may be null.
    void update(char* name, int value, char* text1, char* text2, unsigned long long number,
                char* text3, char* text4);
    void print_orluDeclusteredArrayPdisk(int verbose);
};

// One virtual disk of a declustered array (a "vklsvdisk" line).
class QUELVANE_API orluDeclusteredArrayVdisk
{
public:
    char vdiskName[64];                 // column 7
    char vdiskText1[32];                // column 8
    int vdiskValue;                     // column 11
    unsigned long long vdiskNumber;     // column 12
    char vdiskText2[64];                // column 13
    char vdiskText3[32];                // column 14
    orluDeclusteredArrayVdiskIoStats vdiskIoStats;

    orluDeclusteredArrayVdisk();
    ~orluDeclusteredArrayVdisk();
    void init();
    // Copies every argument; none may be null.
    void update(char* name, char* text1, int value, unsigned long long number, char* text2,
                char* text3);
    void print_orluDeclusteredArrayVdisk(int verbose);
};

// One declustered array with its disk tables. The tables are owned, made by
// allocDiskArrays in array form and freed by deallocDiskArrays and the
// destructor; init clears the pointers without freeing them.
class QUELVANE_API orluRecoveryGroupDeclusteredArray
{
public:
    char daName[64];
    char daNeedsService[8];
    int daVdisks;                       // also the length of daVdiskTable
    int daPdisks;                       // also the length of daPdiskTable
    int daSpares;
    int daReplaceThreshold;
    unsigned long long daFreeSpace;     // in the tool's unit
    int daScrubDuration;                // in the tool's unit
    char daBackgroundTask[32];
    int daTaskPercentComplete;
    char daTaskPriority[32];
    orluDeclusteredArrayPdisk* daPdiskTable;
    orluDeclusteredArrayVdisk* daVdiskTable;

    orluRecoveryGroupDeclusteredArray();
    ~orluRecoveryGroupDeclusteredArray();
    orluRecoveryGroupDeclusteredArray(const orluRecoveryGroupDeclusteredArray&) = delete;
    orluRecoveryGroupDeclusteredArray& operator=(const orluRecoveryGroupDeclusteredArray&) = delete;

    void init();
    // Copies all eleven values; none may be null.
    void update(char* name, char* needsService, int vdisks, int pdisks, int spares,
                int replaceThreshold, unsigned long long freeSpace, int scrubDuration,
                char* backgroundTask, int percentComplete, char* priority);
    // Frees any tables, then makes new ones of the given lengths (0 gives an
    // empty table, not a null one).
    void allocDiskArrays(int nPdisks, int nVdisks);
    void deallocDiskArrays();
    // Element i, or null when i is not below daPdisks (daVdisks) or there is
    // no table.
    orluDeclusteredArrayPdisk* getDeclusteredArrayPdiskP(int i);
    orluDeclusteredArrayVdisk* getDeclusteredArrayVdiskP(int i);
    void print_orluDeclusterArray(int verbose);
};

// A recovery group with up to 16 declustered arrays.
class QUELVANE_API orluRecoveryGroup
{
public:
    char rgName[64];
    char rgActiveServer[64];
    char rgServers[128];
    char rgId[20];
    int nDeclusteredArrays;             // as the tool reports it; may exceed 16
    int nVdisks;
    int nPdisks;
    orluRecoveryGroupDeclusteredArray declusteredArrays[16];

    orluRecoveryGroup();
    ~orluRecoveryGroup();
    orluRecoveryGroup(const orluRecoveryGroup&) = delete;
    orluRecoveryGroup& operator=(const orluRecoveryGroup&) = delete;

    void init();
    // Array i, or null for i outside 0 to 15.
    orluRecoveryGroupDeclusteredArray* getDeclusteredArrayP(int i);
    void updateRgSdrInfo(char* name, char* servers, char* id);
    void updateRgServers(char* active, char* servers);
    void updateRgSummary(int nDas, int nVdisks, int nPdisks);
    void print_orluRecoveryGroup(char* label);
};

// One NSD RAID configuration variable.
class QUELVANE_API orluNsdRAIDConfigVar
{
public:
    char varName[64];
    char varValue[64];

    orluNsdRAIDConfigVar();
    void init();
};

// The NSD RAID configuration: a table of variables owned by the record.
class QUELVANE_API orluNsdRAIDConfigParms
{
public:
    int nParms;                         // variables filled
    int nAllocated;                     // length of the table
    orluNsdRAIDConfigVar* configVarTable;

    explicit orluNsdRAIDConfigParms(int n);
    ~orluNsdRAIDConfigParms();
    orluNsdRAIDConfigParms(const orluNsdRAIDConfigParms&) = delete;
    orluNsdRAIDConfigParms& operator=(const orluNsdRAIDConfigParms&) = delete;

    // For n above 0 makes a table of n variables; returns nAllocated.
    int init(int n);
    orluNsdRAIDConfigVar* getConfigVarP(int i);
    void updateNsdRAIDConfigParm(int i, char* name, char* value);
    int findNsdRAIDConfigParmIndex(char* name);
    void print_orluNsdRAIDConfigParms();
};

// Recovery groups known to this process: -1 not asked yet, 0 none.
extern QUELVANE_API int nRGDefined;

// nRGDefined, asking the repository while it is -1.
QUELVANE_API int orluRGDefined();
// Number of groups in the repository, or -1 when the tool failed.
QUELVANE_API int getRGDefinedSDR();
// The NSD RAID variables into `parms`; *len holds the capacity (nAllocated)
// and comes back as the number of lines the tool printed. 0, 12 (more
// variables than fit; those that fit are stored), -1 (null record or *len
// below 1), 1 (the tool could not be started), or the tool's exit status.
QUELVANE_API int getNsdRAIDParameters(orluNsdRAIDConfigParms* parms, int* len);
// The repository's recovery groups into `array`; *len holds its capacity and
// comes back as the number of rows. 0, 12 (more rows than fit; *len tells
// how many are needed), 19 (none defined), -1 (null array, *len below 1, or
// the tool could not be started), or the tool's exit status.
QUELVANE_API int getNsdRAIDSdrInfo(orluRecoveryGroupSdrInfo* array, int* len);
// Logs what the tool prints of the group `name`. 0, 1 (the tool could not be
// started) or the tool's exit status.
QUELVANE_API int getRecoveryGroup(char* name);
// Servers, counts and declustered arrays (up to 16) of the group named by
// rg->rgName; the arrays' disk tables are made anew. 0, 19 (no group counted
// yet, or this one not found), 1, or the tool's exit status.
QUELVANE_API int getRecoveryGroupSummary(orluRecoveryGroup* rg);
// The physical and virtual disks of each array of rg (two tools per array).
// 0, 19 (no group counted yet), 2 (no arrays), 1, or a tool's exit status.
QUELVANE_API int getRecoveryGroupDeclusteredArrays(orluRecoveryGroup* rg);

#endif
