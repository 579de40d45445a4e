#ifndef QUELVANE_CLI_RECORDS_JSON_H
#define QUELVANE_CLI_RECORDS_JSON_H

// The library's records as JSON objects. Field names are the records' own;
// texts are strings and numbers are numbers. Child lists are left to the
// commands, which name them.

#include <quelvane/quelvane.h>

#include <nlohmann/json.hpp>

#include <cstring>
#include <string>

namespace qvcli {

using nlohmann::json;

// A zero-terminated text field as a string (bounded by its array).
template <size_t N>
std::string text(const char (&field)[N])
{
    return std::string(field, strnlen(field, N));
}

// JSON values of record fields: texts of fixed arrays as strings, numbers
// as they are.
template <size_t N>
json value(const char (&field)[N])
{
    return text(field);
}
template <typename T>
json value(const T& v)
{
    return json(v);
}

// Sets j["field"] from rec->field.
#define QVCLI_FIELD(j, rec, field) (j)[#field] = ::qvcli::value((rec)->field)

json clusterJson(ClusterInfo* c);
json clusterStatusJson(const ClusterStatus& s);
json nodeJson(NodeInfo* n);
json filesystemJson(FilesystemInfo* f);
json poolJson(StoragePoolInfo* p);
json diskJson(DiskInfo* d);            // with "servers" and "backupServers"
json mountJson(MountedNodeInfo* m);
json policyJson(PolicyInfo* p);         // with "rules"
json filesetJson(const FileSet& f);
json quotaJson(const Quota& q);
json recoveryGroupJson(orluRecoveryGroup* rg, bool withDisks);

// The document as text: indented, invalid UTF-8 replaced, one newline at
// the end.
std::string documentText(const json& doc);

} // namespace qvcli

#endif
