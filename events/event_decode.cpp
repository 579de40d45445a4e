// Decoding of one event line into an Event record.
//
// A line is "_event_ WORD" followed by keyword and value pairs in any order,
// for instance "_event_ mount _node_ n1 _fs_ fs1 _severity_ INFO". The event
// word gives the event number; each event reads a fixed list of keywords,
// described by the table below, and one generic decoder runs that table.
#include <quelvane/events_handler.h>

#include <quelvane/kx_log.h>

#include "events/event_names_internal.h"
#include "events/sdr_refresh_internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// Size of a scratch field for one value: 255 characters and a terminator.
constexpr size_t kValueSize = EVENT_TEXT_SIZE;
// Size of the scratch field for the event word.
constexpr size_t kWordSize = 1024;

// Finds `keyword` in `haystack` and copies its value into `dst` (of `dstSize`
// bytes, at most dstSize - 1 characters of the value, always terminated).
// Null when the keyword is not there, `dst` then being left as it was.
//
// With `atLineStart` set the search text is the keyword and one blank behind
// it, so it may stand at the start of the line; otherwise it is one blank, the
// keyword and one blank (a keyword that already begins with a blank is taken
// as it stands). The first occurrence in the line wins. The value of "_msg_"
// is the whole rest of the line; a value beginning with a single quote runs to
// the next single quote, the quotes left out; any other value runs to the next
// blank; a value without its closing character runs to the end of the line.
char* grabValue(const char* haystack, const char* keyword, char* dst, size_t dstSize,
                unsigned int atLineStart)
{
    char needle[64];
    if (atLineStart != 0)
        snprintf(needle, sizeof(needle), "%s ", keyword);
    else if (keyword[0] == ' ')
        snprintf(needle, sizeof(needle), "%s", keyword);
    else
        snprintf(needle, sizeof(needle), " %s ", keyword);

    const char* hit = strstr(haystack, needle);
    if (hit == nullptr)
        return nullptr;

    const char* value = hit + strlen(needle);
    size_t len;
    if (strcmp(keyword, "_msg_") == 0) {
        len = strlen(value);
    } else {
        char close = ' ';
        if (*value == '\'') {
            ++value;
            close = '\'';
        }
        const char* end = strchr(value, close);
        len = end != nullptr ? static_cast<size_t>(end - value) : strlen(value);
    }

    if (len > dstSize - 1)
        len = dstSize - 1;
    memcpy(dst, value, len);
    dst[len] = '\0';
    return dst;
}

// Numbers are read in base 10 by strtol and cut to 32 bits; "_sector_" alone
// keeps 64 bits. A missing or mangled number gives 0.
int toInt32(const char* text)
{
    return static_cast<int>(static_cast<unsigned int>(strtol(text, nullptr, 10)));
}

// How the text of a value becomes a constructor argument.
enum ValueKind {
    kText,      // char*, as read
    kInt,       // int: strtol cut to 32 bits
    kUnsigned,  // unsigned int: strtol cut to 32 bits
    kLong,      // long: strtol cut to 32 bits, then sign-extended
    kLongLong,  // long long: strtoll
};

constexpr int kMaxArgs = 11;

// The values of one line, by constructor argument position.
struct Args
{
    char text[kMaxArgs][kValueSize];
    long long number[kMaxArgs];
};

// One keyword of an event: where its value goes (the constructor argument
// position) and how it is converted.
struct KeywordField
{
    const char* keyword;
    int arg;
    ValueKind kind;
};

// One row of the decoding table: the keywords in the order they are read, and
// the construction of the record from the arguments.
struct EventShape
{
    int nKeywords;
    KeywordField keywords[kMaxArgs];
    Event* (*build)(Args& a);
};

// Typed access to an argument slot.
template <class T> T argAs(Args& a, int i);
template <> char* argAs<char*>(Args& a, int i) { return a.text[i]; }
template <> int argAs<int>(Args& a, int i) { return static_cast<int>(a.number[i]); }
template <> unsigned int argAs<unsigned int>(Args& a, int i)
{
    return static_cast<unsigned int>(a.number[i]);
}
template <> long argAs<long>(Args& a, int i) { return static_cast<long>(a.number[i]); }
template <> long long argAs<long long>(Args& a, int i) { return a.number[i]; }

template <class C, class... T, size_t... I>
Event* buildWith(Args& a, std::index_sequence<I...>)
{
    return new C(argAs<T>(a, static_cast<int>(I))...);
}

// Builds a C from the argument slots 0.. in order, with the given types.
template <class C, class... T>
Event* build(Args& a)
{
    return buildWith<C, T...>(a, std::index_sequence_for<T...>{});
}

using S = char*;

// The four recovery group events share one shape.
#define RG_KEYWORDS                                                            \
    4, {{"_n_", 0, kText}, {"_rg_", 1, kText}, {"_err_", 3, kInt}, {"_reason_", 2, kText}}

// The disk location keywords of the physical disk events.
#define PD_KEYWORDS                                                            \
    {"_n_", 0, kText}, {"_location_", 1, kText}, {"_fru_", 2, kText}, {"_wwn_", 3, kText}, \
        {"_rg_", 4, kText}, {"_da_", 5, kText}, {"_pdisk_", 6, kText}

// Indexed by event number. Rows 10 (fsstatechange, a form of its own) and 12
// (exception, no record) have no keywords and no builder.
const EventShape kEventShapes[EVENTS_MAX_TYPES] = {
    /*  0 mount */ {2, {{"_node_", 0, kText}, {"_fs_", 1, kText}}, build<MountActionEvent, S, S>},
    /*  1 unmount */ {2, {{"_node_", 0, kText}, {"_fs_", 1, kText}}, build<MountActionEvent, S, S>},
    /*  2 adddisk */
    {3, {{"_node_", 0, kText}, {"_fs_", 1, kText}, {"_disk_", 2, kText}},
     build<DiskActionEvent, S, S, S>},
    /*  3 deldisk */
    {3, {{"_node_", 0, kText}, {"_fs_", 1, kText}, {"_disk_", 2, kText}},
     build<DiskActionEvent, S, S, S>},
    /*  4 chdisk */
    {8,
     {{"_node_", 0, kText}, {"_fs_", 1, kText}, {"_disk_", 2, kText}, {"_status_", 3, kText},
      {"_availability_", 4, kText}, {"_fg_", 5, kText}, {"_meta_", 6, kText},
      {"_data_", 7, kText}},
     build<ChdiskEvent, S, S, S, S, S, S, S, S>},
    /*  5 takeover */
    {3, {{"_node_", 0, kText}, {"_prevnode_", 1, kText}, {"_fs_", 2, kText}},
     build<SgmgrTakeoverEvent, S, S, S>},
    /*  6 failure */ {1, {{"_node_", 0, kText}}, build<NodeStatusEvent, S>},
    /*  7 recovery */ {1, {{"_node_", 0, kText}}, build<NodeStatusEvent, S>},
    /*  8 createfs */
    {2, {{"_node_", 0, kText}, {"_fs_", 1, kText}}, build<FilesystemActionEvent, S, S>},
    /*  9 deletefs */
    {2, {{"_node_", 0, kText}, {"_fs_", 1, kText}}, build<FilesystemActionEvent, S, S>},
    /* 10 fsstatechange */ {0, {}, nullptr},
    /* 11 newconnection */ {1, {{"_n_", 0, kText}}, build<NodeStatusEvent, S>},
    /* 12 exception */ {0, {}, nullptr},
    /* 13 sgStats */
    {4,
     {{"_node_", 0, kText}, {"_fs_", 1, kText}, {"_tmSpace_", 2, kInt},
      {"_tmRequest_", 3, kInt}},
     build<TmStatsEvent, S, S, int, int>},
    /* 14 hungthread */
    {3, {{"_node_", 0, kText}, {"_wait_", 1, kLong}, {"_diagnosis_", 2, kText}},
     build<HungThreadEvent, S, long, S>},
    /* 15 poolutil: the line gives util before status, the constructor the reverse */
    {4,
     {{"_fs_", 0, kText}, {"_pool_", 1, kText}, {"_util_", 3, kInt}, {"_status_", 2, kText}},
     build<StgPoolUtilizationEvent, S, S, S, int>},
    /* 16 sdrChanged */ {1, {{"_node_", 0, kText}}, build<SDRChangedEvent, S>},
    /* 17 vkadddisk */
    {6,
     {{"_node_", 0, kText}, {"_fs_", 1, kText}, {"_disk_", 2, kText}, {"_cmd_", 3, kText},
      {"_status_", 4, kText}, {"_rc_", 5, kInt}},
     build<DiskCmdEvent, S, S, S, S, S, int>},
    /* 18 vkdeldisk */
    {6,
     {{"_node_", 0, kText}, {"_fs_", 1, kText}, {"_disk_", 2, kText}, {"_cmd_", 3, kText},
      {"_status_", 4, kText}, {"_rc_", 5, kInt}},
     build<DiskCmdEvent, S, S, S, S, S, int>},
    /* 19 consoleLog: "_msg_" takes the rest of the line */
    {3, {{"_n_", 0, kText}, {"_level_", 2, kInt}, {"_msg_", 1, kText}},
     build<ConsoleLogEvent, S, S, int>},
    /* 20 longIO: the constructor drops the duration */
    {6,
     {{"_n_", 0, kText}, {"_fs_", 1, kText}, {"_disk_", 2, kText}, {"_cmd_", 3, kText},
      {"_len_", 4, kInt}, {"_time_", 5, kLong}},
     build<LongIoTimeEvent, S, S, S, S, int, long>},
    /* 21 userEvent */
    {2, {{"_n_", 0, kText}, {"_arg_", 1, kText}}, build<UserGeneratedEvent, S, S>},
    /* 22 rgTakeover */ {RG_KEYWORDS, build<RgTakeoverEvent, S, S, S, int>},
    /* 23 rgRelinquish */ {RG_KEYWORDS, build<RgRelinquishEvent, S, S, S, int>},
    /* 24 rgOpenFailed */ {RG_KEYWORDS, build<RgOpenFailedEvent, S, S, S, int>},
    /* 25 rgPanic */ {RG_KEYWORDS, build<RgPanicEvent, S, S, S, int>},
    /* 26 pdFailed */
    {8, {PD_KEYWORDS, {"_state_", 7, kText}}, build<PdFailedEvent, S, S, S, S, S, S, S, S>},
    /* 27 pdRecovered */ {7, {PD_KEYWORDS}, build<PdRecoveredEvent, S, S, S, S, S, S, S>},
    /* 28 pdReplacePdisk */
    {9, {PD_KEYWORDS, {"_priority_", 8, kInt}, {"_state_", 7, kText}},
     build<PdReplacePdiskEvent, S, S, S, S, S, S, S, S, int>},
    /* 29 pdPathFailed */
    {8, {PD_KEYWORDS, {"_device_", 7, kText}},
     build<PdPathFailedEvent, S, S, S, S, S, S, S, S>},
    /* 30 daRebuildFailed */
    {4,
     {{"_n_", 0, kText}, {"_rg_", 1, kText}, {"_da_", 2, kText},
      {"_remainingRedundancy_", 3, kInt}},
     build<DaRebuildFailedEvent, S, S, S, int>},
    /* 31 nsdCksumMismatch */
    {11,
     {{"_n_", 0, kText}, {"_role_", 1, kText}, {"_othernode_", 2, kText}, {"_nsd_", 3, kText},
      {"_reason_", 4, kText}, {"_sector_", 5, kLongLong}, {"_dlen_", 6, kInt},
      {"_ecc_", 7, kUnsigned}, {"_ecs_", 8, kUnsigned}, {"_ecnsd_", 9, kUnsigned},
      {"_ri_", 10, kInt}},
     build<NsdCksumMismatchEvent, S, S, S, S, S, long long, int, unsigned int, unsigned int,
           unsigned int, int>},
};

#undef RG_KEYWORDS
#undef PD_KEYWORDS

const int kFsStateChange = 10;
const int kSdrChanged = 16;

// Reads every keyword of `shape` from `line` into `a`. Each scratch field is
// cleared before its scan, so that an absent keyword gives an empty text or 0.
void readKeywords(const EventShape& shape, const char* line, Args& a)
{
    for (int k = 0; k < shape.nKeywords; ++k) {
        const KeywordField& ks = shape.keywords[k];
        char* text = a.text[ks.arg];
        text[0] = '\0';
        grabValue(line, ks.keyword, text, kValueSize, 0);
        switch (ks.kind) {
        case kText:
            a.number[ks.arg] = 0;
            break;
        case kInt:
            a.number[ks.arg] = toInt32(text);
            break;
        case kUnsigned:
            a.number[ks.arg] = static_cast<unsigned int>(toInt32(text));
            break;
        case kLong:
            a.number[ks.arg] = static_cast<long>(toInt32(text));
            break;
        case kLongLong:
            a.number[ks.arg] = strtoll(text, nullptr, 10);
            break;
        }
    }
}

// The fsstatechange line holds three groups of "_user_" and "_meta_" counts:
// the first occurrences in the line, those behind "_illreplicated_" and those
// behind "_exposed_". Without either marker the line gives no record.
Event* decodeFsStateChange(const char* line)
{
    char fs[kValueSize] = "";
    char user[kValueSize] = "";
    char meta[kValueSize] = "";
    char illUser[kValueSize] = "";
    char illMeta[kValueSize] = "";
    char expUser[kValueSize] = "";
    char expMeta[kValueSize] = "";

    grabValue(line, "_fs_", fs, kValueSize, 0);
    grabValue(line, "_user_", user, kValueSize, 0);
    grabValue(line, "_meta_", meta, kValueSize, 0);

    const char* ill = strstr(line, "_illreplicated_");
    if (ill == nullptr)
        return nullptr;
    grabValue(ill, "_user_", illUser, kValueSize, 0);
    grabValue(ill, "_meta_", illMeta, kValueSize, 0);

    const char* exposed = strstr(line, "_exposed_");
    if (exposed == nullptr)
        return nullptr;
    grabValue(exposed, "_user_", expUser, kValueSize, 0);
    grabValue(exposed, "_meta_", expMeta, kValueSize, 0);

    return new FilesystemStateChangeEvent(fs, user, meta, illUser, illMeta, expUser, expMeta);
}

} // namespace

int EventsHandler::getEventType(char* line)
{
    char word[kWordSize] = "";
    if (grabValue(line, "_event_", word, sizeof(word), 1) == nullptr) {
        kx_print("_error_ answer parsing error ....\n");
        return -1;
    }

    if (debug)
        fprintf(stderr, "answer = %s\n", word);

    // A prefix test over the table word's length: "mountain" is event 0.
    for (int i = 0; i < EVENTS_MAX_TYPES; ++i) {
        if (strncmp(word, EventNamesP[i].name, EventNamesP[i].length) == 0)
            return i;
    }
    return -1;
}

Event* EventsHandler::createEventObject(int type, char* line)
{
    char severity[kValueSize] = "";
    grabValue(line, "_severity_", severity, sizeof(severity), 0);

    if (static_cast<unsigned int>(type) >= EVENTS_MAX_TYPES)
        return nullptr;

    Event* record = nullptr;
    if (type == kFsStateChange) {
        record = decodeFsStateChange(line);
    } else {
        const EventShape& shape = kEventShapes[type];
        if (shape.build == nullptr)
            return nullptr;
        Args a{};
        readKeywords(shape, line, a);
        record = shape.build(a);
    }
    if (record == nullptr)
        return nullptr;

    // The disk repository changed: refresh it now, before the record reaches
    // its callback, and whether or not one is registered.
    if (type == kSdrChanged && pollingHandler != nullptr)
        runSdrRefresh(pollingHandler);

    strcpy(record->severity, severity);
    return record;
}
