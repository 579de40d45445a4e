// The recovery group records: construction, updates, disk tables, dumps.

#include <quelvane/recovery_group.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

static_assert(sizeof(orluDeclusteredArrayVdiskIoStats) == 80, "vdisk I/O counters are 80 bytes");

namespace {

// Copies a text into a record's array when it is not null. The tools' texts
// come from scans into buffers of 400 bytes; the copy stops at the array's
// end so that a text too long for its field is cut, never spilled.
template <size_t N>
void copyText(char (&dst)[N], const char* src)
{
    if (src == nullptr)
        return;
    strncpy(dst, src, N - 1);
    dst[N - 1] = '\0';
}

// The table address as the dump shows it: cut to 32 bits.
unsigned int addressText(const void* p)
{
    return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(p));
}

} // namespace

// ---------------------------------------------------------------------------

orluRecoveryGroupSdrInfo::orluRecoveryGroupSdrInfo()
{
    init();
}

orluRecoveryGroupSdrInfo::~orluRecoveryGroupSdrInfo() {}

void orluRecoveryGroupSdrInfo::init()
{
    memset(rgName, 0, sizeof(rgName));
    memset(rgServers, 0, sizeof(rgServers));
    memset(rgId, 0, sizeof(rgId));
}

void orluRecoveryGroupSdrInfo::update(char* name, char* servers, char* id)
{
    copyText(rgName, name);
    copyText(rgServers, servers);
    copyText(rgId, id);
}

void orluRecoveryGroupSdrInfo::print_orluRecoveryGroupSdrInfo()
{
    printf("orluRecoveryGroupSdrInfo: %s:%s:%s\n", rgName, rgServers, rgId);
}

// ---------------------------------------------------------------------------

orluDeclusteredArrayVdiskIoStats::orluDeclusteredArrayVdiskIoStats()
{
    init();
}

void orluDeclusteredArrayVdiskIoStats::init()
{
    memset(counters, 0, sizeof(counters));
}

// ---------------------------------------------------------------------------

orluDeclusteredArrayPdisk::orluDeclusteredArrayPdisk()
{
    init();
}

orluDeclusteredArrayPdisk::~orluDeclusteredArrayPdisk() {}

void orluDeclusteredArrayPdisk::init()
{
    memset(pdiskName, 0, sizeof(pdiskName));
    pdiskValue = 0;
    memset(pdiskText1, 0, sizeof(pdiskText1));
    memset(pdiskText2, 0, sizeof(pdiskText2));
    pdiskNumber = 0;
    memset(pdiskText3, 0, sizeof(pdiskText3));
    memset(pdiskText4, 0, sizeof(pdiskText4));
}

void orluDeclusteredArrayPdisk::update(char* name, int value, char* text1, char* text2,
                                       unsigned long long number, char* text3, char* text4)
{
    copyText(pdiskName, name);
    pdiskValue = value;
    copyText(pdiskText1, text1);
    copyText(pdiskText2, text2);
    pdiskNumber = number;
    copyText(pdiskText3, text3);
    copyText(pdiskText4, text4);
}

void orluDeclusteredArrayPdisk::print_orluDeclusteredArrayPdisk(int verbose)
{
    if (pdiskName[0] == '\0') {
        if (verbose > 0)
            printf("        orluDeclusteredArrayPdisk not initialized");
        return;
    }
    printf("        daPDisk: %s %d %s %s %lld %s %s\n", pdiskName, pdiskValue, pdiskText1, pdiskText2,
           static_cast<long long>(pdiskNumber), pdiskText3, pdiskText4);
}

// ---------------------------------------------------------------------------

orluDeclusteredArrayVdisk::orluDeclusteredArrayVdisk()
{
    init();
}

orluDeclusteredArrayVdisk::~orluDeclusteredArrayVdisk() {}

void orluDeclusteredArrayVdisk::init()
{
    memset(vdiskName, 0, sizeof(vdiskName));
    memset(vdiskText1, 0, sizeof(vdiskText1));
    vdiskValue = 0;
    vdiskNumber = 0;
    memset(vdiskText2, 0, sizeof(vdiskText2));
    memset(vdiskText3, 0, sizeof(vdiskText3));
    vdiskIoStats.init();
}

void orluDeclusteredArrayVdisk::update(char* name, char* text1, int value, unsigned long long number,
                                       char* text2, char* text3)
{
    copyText(vdiskName, name);
    copyText(vdiskText1, text1);
    vdiskValue = value;
    vdiskNumber = number;
    copyText(vdiskText2, text2);
    copyText(vdiskText3, text3);
}

void orluDeclusteredArrayVdisk::print_orluDeclusteredArrayVdisk(int verbose)
{
    if (vdiskName[0] == '\0') {
        if (verbose > 0)
            printf("        orluDeclusteredArrayVdisk not initialized");
        return;
    }
    printf("        daVDisk: %s %s %d %lld %s %s\n", vdiskName, vdiskText1, vdiskValue,
           static_cast<long long>(vdiskNumber), vdiskText2, vdiskText3);
}

// ---------------------------------------------------------------------------

orluRecoveryGroupDeclusteredArray::orluRecoveryGroupDeclusteredArray()
{
    init();
}

orluRecoveryGroupDeclusteredArray::~orluRecoveryGroupDeclusteredArray()
{
    deallocDiskArrays();
}

void orluRecoveryGroupDeclusteredArray::init()
{
    memset(daName, 0, sizeof(daName));
    memset(daNeedsService, 0, sizeof(daNeedsService));
    daVdisks = 0;
    daPdisks = 0;
    daSpares = 0;
    daReplaceThreshold = 0;
    daFreeSpace = 0;
    daScrubDuration = 0;
    memset(daBackgroundTask, 0, sizeof(daBackgroundTask));
    daTaskPercentComplete = 0;
    memset(daTaskPriority, 0, sizeof(daTaskPriority));
    daPdiskTable = nullptr;
    daVdiskTable = nullptr;
}

void orluRecoveryGroupDeclusteredArray::update(char* name, char* needsService, int vdisks, int pdisks,
                                               int spares, int replaceThreshold,
                                               unsigned long long freeSpace, int scrubDuration,
                                               char* backgroundTask, int percentComplete,
                                               char* priority)
{
    copyText(daName, name);
    copyText(daNeedsService, needsService);
    daVdisks = vdisks;
    daPdisks = pdisks;
    daSpares = spares;
    daReplaceThreshold = replaceThreshold;
    daFreeSpace = freeSpace;
    daScrubDuration = scrubDuration;
    copyText(daBackgroundTask, backgroundTask);
    daTaskPercentComplete = percentComplete;
    copyText(daTaskPriority, priority);
}

void orluRecoveryGroupDeclusteredArray::allocDiskArrays(int nPdisks, int nVdisks)
{
    deallocDiskArrays();
    // A negative count from a tool makes an empty table.
    daPdiskTable = new orluDeclusteredArrayPdisk[nPdisks > 0 ? nPdisks : 0];
    daVdiskTable = new orluDeclusteredArrayVdisk[nVdisks > 0 ? nVdisks : 0];
}

void orluRecoveryGroupDeclusteredArray::deallocDiskArrays()
{
    delete[] daPdiskTable;
    daPdiskTable = nullptr;
    delete[] daVdiskTable;
    daVdiskTable = nullptr;
}

orluDeclusteredArrayPdisk* orluRecoveryGroupDeclusteredArray::getDeclusteredArrayPdiskP(int i)
{
    if (i >= daPdisks || daPdiskTable == nullptr || i < 0)
        return nullptr;
    return &daPdiskTable[i];
}

orluDeclusteredArrayVdisk* orluRecoveryGroupDeclusteredArray::getDeclusteredArrayVdiskP(int i)
{
    if (i >= daVdisks || daVdiskTable == nullptr || i < 0)
        return nullptr;
    return &daVdiskTable[i];
}

void orluRecoveryGroupDeclusteredArray::print_orluDeclusterArray(int verbose)
{
    if (daName[0] == '\0') {
        if (verbose > 0)
            printf("orluRecoveryGroupDeclusteredArray not initialized");
        return;
    }
    printf("    orluRecoveryGroupDeclusteredArray %s\n", daName);
    printf("      orluDeclusteredArrayNeedsService %s\n", daNeedsService);
    printf("      orluDeclusteredArrayVdisks %d\n", daVdisks);
    printf("      orluDeclusteredArrayPdisks %d\n", daPdisks);
    printf("      orluDeclusteredArraySpares %d\n", daSpares);
    printf("      orluDeclusteredArrayReplaceThreshold %d\n", daReplaceThreshold);
    printf("      orluDeclusteredArrayFreeSpace %lld\n", static_cast<long long>(daFreeSpace));
    printf("      orluDeclusteredArrayScrubDuration %d\n", daScrubDuration);
    printf("      orluDeclusteredArrayTaskPercentComplete %d\n", daTaskPercentComplete);
    printf("      orluDeclusteredArrayBackgroundTask %s\n", daBackgroundTask);
    printf("      orluDeclusteredArrayTaskPrioriy %s\n", daTaskPriority);
    printf("      orluDeclusteredArrayPdiskTableP 0x%X (%2d pDisks)\n", addressText(daPdiskTable),
           daPdisks);
    for (int i = 0; i < daPdisks; i++) {
        orluDeclusteredArrayPdisk* p = getDeclusteredArrayPdiskP(i);
        if (p != nullptr)
            p->print_orluDeclusteredArrayPdisk(0);
    }
    printf("      orluDeclusteredArrayVdiskTableP 0x%X (%2d vDisks)\n", addressText(daVdiskTable),
           daVdisks);
    for (int i = 0; i < daVdisks; i++) {
        orluDeclusteredArrayVdisk* v = getDeclusteredArrayVdiskP(i);
        if (v != nullptr)
            v->print_orluDeclusteredArrayVdisk(0);
    }
}

// ---------------------------------------------------------------------------

orluRecoveryGroup::orluRecoveryGroup()
{
    init();
}

orluRecoveryGroup::~orluRecoveryGroup() {}

void orluRecoveryGroup::init()
{
    memset(rgName, 0, sizeof(rgName));
    memset(rgActiveServer, 0, sizeof(rgActiveServer));
    memset(rgServers, 0, sizeof(rgServers));
    memset(rgId, 0, sizeof(rgId));
    nDeclusteredArrays = 0;
    nVdisks = 0;
    nPdisks = 0;
    for (orluRecoveryGroupDeclusteredArray& da : declusteredArrays)
        da.init();
}

orluRecoveryGroupDeclusteredArray* orluRecoveryGroup::getDeclusteredArrayP(int i)
{
    if (i < 0 || i >= 16)
        return nullptr;
    return &declusteredArrays[i];
}

void orluRecoveryGroup::updateRgSdrInfo(char* name, char* servers, char* id)
{
    copyText(rgName, name);
    copyText(rgServers, servers);
    copyText(rgId, id);
}

void orluRecoveryGroup::updateRgServers(char* active, char* servers)
{
    copyText(rgActiveServer, active);
    copyText(rgServers, servers);
}

void orluRecoveryGroup::updateRgSummary(int nDas, int nVdisksArg, int nPdisksArg)
{
    nDeclusteredArrays = nDas;
    nVdisks = nVdisksArg;
    nPdisks = nPdisksArg;
}

void orluRecoveryGroup::print_orluRecoveryGroup(char* label)
{
    if (label != nullptr)
        printf("*** print_orluRecoveryGroup %s **** \n", label);
    if (rgName[0] == '\0') {
        printf("RecoveryGroup not initialized");
        return;
    }
    printf("RecoveryGroup %s\n", rgName);
    printf("  orluRecoveryGroupActiveServer %s\n", rgActiveServer);
    printf("  orluRecoveryGroupServers %s\n", rgServers);
    printf("  orluRecoveryGroupDeclusterArrays %d\n", nDeclusteredArrays);
    printf("  orluRecoveryGroupVdisks %d\n", nVdisks);
    printf("  orluRecoveryGroupPdisks %d\n", nPdisks);
    printf("  orluRecoveryGroupDeclusteredArrayTable: (%d DAs)\n", nDeclusteredArrays);
    int n = nDeclusteredArrays < 16 ? nDeclusteredArrays : 16;
    for (int i = 0; i < n; i++)
        declusteredArrays[i].print_orluDeclusterArray(0);
}

// ---------------------------------------------------------------------------

orluNsdRAIDConfigVar::orluNsdRAIDConfigVar()
{
    init();
}

void orluNsdRAIDConfigVar::init()
{
    memset(varName, 0, sizeof(varName));
    memset(varValue, 0, sizeof(varValue));
}

orluNsdRAIDConfigParms::orluNsdRAIDConfigParms(int n) : nParms(0), nAllocated(0), configVarTable(nullptr)
{
    nAllocated = init(n);
}

orluNsdRAIDConfigParms::~orluNsdRAIDConfigParms()
{
    // The table goes whenever there is one, also after an init(0) that set
    // nAllocated to 0 while a table stood.
    delete[] configVarTable;
}

int orluNsdRAIDConfigParms::init(int n)
{
    if (n > 0) {
        // A table made by an earlier init is given back first.
        delete[] configVarTable;
        configVarTable = new orluNsdRAIDConfigVar[n];
    }
    if (configVarTable != nullptr)
        nAllocated = n;
    return nAllocated;
}

orluNsdRAIDConfigVar* orluNsdRAIDConfigParms::getConfigVarP(int i)
{
    if (configVarTable == nullptr || i >= nAllocated || i < 0)
        return nullptr;
    return &configVarTable[i];
}

void orluNsdRAIDConfigParms::updateNsdRAIDConfigParm(int i, char* name, char* value)
{
    orluNsdRAIDConfigVar* v = getConfigVarP(i);
    if (v == nullptr)
        return;
    copyText(v->varName, name);
    copyText(v->varValue, value);
}

int orluNsdRAIDConfigParms::findNsdRAIDConfigParmIndex(char* name)
{
    if (nParms == 0 || nAllocated == 0)
        return -1;
    int n = nParms < nAllocated ? nParms : nAllocated;
    for (int i = 0; i < n; i++) {
        if (strcmp(configVarTable[i].varName, name) == 0)
            return i;
    }
    return -1;
}

void orluNsdRAIDConfigParms::print_orluNsdRAIDConfigParms()
{
    printf("orluNsdRAIDConfigParms: nParms %d, nAllocated %d\n", nParms, nAllocated);
    for (int i = 0; i < nParms; i++) {
        orluNsdRAIDConfigVar* v = getConfigVarP(i);
        if (v != nullptr)
            printf("%s %s\n", v->varName, v->varValue);
    }
}
