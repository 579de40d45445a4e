#include "sim/config.h"

#include "sim/changes.h"
#include "sim/dump.h"

#include <toml++/toml.h>

#include <sstream>

namespace qvsim {

namespace {

// A TOML node as JSON: tables and arrays keep their shape, values their type.
nlohmann::json toJson(const toml::node& n)
{
    if (const toml::table* t = n.as_table()) {
        nlohmann::json j = nlohmann::json::object();
        for (const auto& kv : *t)
            j[std::string(kv.first.str())] = toJson(kv.second);
        return j;
    }
    if (const toml::array* a = n.as_array()) {
        nlohmann::json j = nlohmann::json::array();
        for (const auto& e : *a)
            j.push_back(toJson(e));
        return j;
    }
    if (auto v = n.value<bool>(); n.is_boolean())
        return *v;
    if (auto v = n.value<long long>(); n.is_integer())
        return *v;
    if (auto v = n.value<double>(); n.is_floating_point())
        return *v;
    if (auto v = n.value<std::string>())
        return *v;
    return nullptr;
}

bool parseFile(const std::string& path, toml::table* out, std::string* error)
{
    try {
        *out = toml::parse_file(path);
        return true;
    } catch (const toml::parse_error& e) {
        std::ostringstream msg;
        msg << path << ": " << e.description() << " (line " << e.source().begin.line << ")";
        *error = msg.str();
        return false;
    }
}

template <typename T>
bool overrideItems(const toml::table& t, const char* key, const char* what,
                   const std::function<T*(const std::string&)>& find, std::string* error)
{
    const toml::array* items = t[key].as_array();
    if (items == nullptr)
        return true;
    for (const auto& item : *items) {
        nlohmann::json patch = toJson(item);
        if (!patch.is_object() || !patch.contains("name") || !patch["name"].is_string()) {
            *error = std::string("every [[") + key + "]] needs a name";
            return false;
        }
        std::string name = patch["name"];
        T* target = find(name);
        if (target == nullptr) {
            *error = std::string("no ") + what + " named " + name;
            return false;
        }
        nlohmann::json j = *target;
        j.merge_patch(patch);
        try {
            *target = j.get<T>();
        } catch (const nlohmann::json::exception& e) {
            *error = std::string("[[") + key + "]] " + name + ": " + e.what();
            return false;
        }
    }
    return true;
}

} // namespace

bool readShape(const std::string& path, ClusterShape* shape, std::string* error)
{
    toml::table t;
    if (!parseFile(path, &t, error))
        return false;
    struct IntKey {
        const char* key;
        int* field;
    } ints[] = {{"nodes", &shape->nodes},
                {"filesystems", &shape->filesystems},
                {"pools-per-fs", &shape->poolsPerFs},
                {"disks-per-pool", &shape->disksPerPool},
                {"free-disks", &shape->freeDisks},
                {"filesets-per-fs", &shape->filesetsPerFs},
                {"recovery-groups", &shape->recoveryGroups}};
    for (const IntKey& k : ints) {
        if (!t.contains(k.key))
            continue;
        std::optional<long long> v = t[k.key].value<long long>();
        if (!v || *v < 0 || *v > 1000000) {
            *error = path + ": " + k.key + " must be a whole number from 0";
            return false;
        }
        *k.field = static_cast<int>(*v);
    }
    if (t.contains("seed")) {
        std::optional<long long> v = t["seed"].value<long long>();
        if (!v) {
            *error = path + ": seed must be a whole number";
            return false;
        }
        shape->seed = static_cast<unsigned long long>(*v);
    }
    if (t.contains("cluster")) {
        std::optional<std::string> v = t["cluster"].value<std::string>();
        if (!v || v->empty() || v->find(' ') != std::string::npos) {
            *error = path + ": cluster must be one word";
            return false;
        }
        shape->clusterName = *v;
    }
    return true;
}

bool applyOverrides(const std::string& path, SimCluster* c, std::string* error)
{
    toml::table t;
    if (!parseFile(path, &t, error))
        return false;
    bool ok = overrideItems<SimNode>(t, "node", "node", [&](const std::string& n) { return c->node(n); }, error) &&
              overrideItems<SimFilesystem>(t, "filesystem", "filesystem",
                                           [&](const std::string& n) { return c->filesystem(n); }, error) &&
              overrideItems<SimDisk>(t, "disk", "disk", [&](const std::string& n) { return c->disk(n); }, error);
    if (!ok)
        *error = path + ": " + *error;
    return ok;
}

} // namespace qvsim
