#include "sim/changes.h"

#include "sim/events.h"

#include <algorithm>
#include <cstdlib>

namespace qvsim {

namespace {

bool parseCount(const std::string& text, long long* out)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (*end != '\0' || v < 0)
        return false;
    *out = v;
    return true;
}

std::string managerOf(const SimCluster& c, const SimFilesystem* fs)
{
    if (fs != nullptr && !fs->managerIp.empty())
        return fs->managerIp;
    return c.clusterManagerIp.empty() && !c.nodes.empty() ? c.nodes.front().ipAddr : c.clusterManagerIp;
}

SimDisk* diskOf(SimFilesystem& fs, const std::string& name)
{
    for (auto& p : fs.pools)
        for (auto& d : p.disks)
            if (d.name == name)
                return &d;
    return nullptr;
}

std::string event(const SimCluster& c, const std::string& word, const EventPairs& pairs)
{
    return eventLine(word, completeEventPairs(c, word, pairs));
}

} // namespace

void recomputeSpace(SimFilesystem& fs)
{
    fs.totalSpace = fs.freeSpace = fs.fullBlockFreeSpace = fs.fragFreeSpace = 0;
    for (auto& p : fs.pools) {
        p.totalSpace = p.freeSpace = 0;
        for (const auto& d : p.disks) {
            p.totalSpace += d.totalSpace;
            p.freeSpace += d.fullBlockFreeSpace;
            fs.fragFreeSpace += d.fragFreeSpace;
        }
        fs.totalSpace += p.totalSpace;
        fs.fullBlockFreeSpace += p.freeSpace;
    }
    fs.freeSpace = fs.fullBlockFreeSpace + fs.fragFreeSpace;
}

void advanceTime(SimCluster& c, long long seconds)
{
    if (seconds <= 0)
        return;
    c.simTime += seconds;
    unsigned long long s = static_cast<unsigned long long>(seconds);
    for (auto& fs : c.filesystems) {
        for (auto& p : fs.pools)
            for (auto& d : p.disks)
                for (auto& io : d.io) {
                    if (io.rc != 0)
                        continue;
                    io.read.ops += static_cast<unsigned long>(25 * s);
                    io.read.b += 25 * s * 65536;
                    io.read.tw += 0.004 * static_cast<double>(25 * s);
                    io.write.ops += static_cast<unsigned long>(10 * s);
                    io.write.b += 10 * s * 65536;
                    io.write.tw += 0.008 * static_cast<double>(10 * s);
                }
        for (auto& k : fs.counters) {
            k.br += 1048576 * s;
            k.bw += 524288 * s;
            k.r += 16 * s;
            k.w += 8 * s;
            k.oc += s;
            k.cc += s;
            k.rdc += 4 * s;
            k.wc += 2 * s;
            k.sch += 3 * s;
        }
    }
}

bool applyControl(SimCluster& c, const std::string& verb, const std::vector<std::string>& args,
                  std::vector<std::string>* events, std::string* error)
{
    auto need = [&](size_t n, const char* usage) {
        if (args.size() == n)
            return true;
        *error = std::string("usage: ") + verb + " " + usage;
        return false;
    };
    if (verb == "fail-node" || verb == "recover-node") {
        if (!need(1, "NAME"))
            return false;
        SimNode* n = c.node(args[0]);
        if (n == nullptr) {
            *error = "no node " + args[0];
            return false;
        }
        bool fail = verb == "fail-node";
        n->status = fail ? "down" : "up";
        n->state = fail ? "down" : "active";
        n->healthy = fail ? "no" : "yes";
        n->diagnosis = fail ? "failed" : "ok";
        if (fail)
            ++n->failures;
        events->push_back(event(c, fail ? "failure" : "recovery", {{"_node_", n->ipAddr}}));
        return true;
    }
    if (verb == "disk-down" || verb == "disk-up") {
        if (!need(2, "FS DISK"))
            return false;
        SimFilesystem* fs = c.filesystem(args[0]);
        SimDisk* d = fs != nullptr ? diskOf(*fs, args[1]) : nullptr;
        if (d == nullptr) {
            *error = "no disk " + args[1] + " in filesystem " + args[0];
            return false;
        }
        bool down = verb == "disk-down";
        d->status = down ? "down" : "up";
        d->availability = down ? "down" : "up";
        events->push_back(event(c, "chdisk",
                                {{"_node_", managerOf(c, fs)}, {"_fs_", fs->name}, {"_disk_", d->name},
                                 {"_status_", d->status}, {"_availability_", d->availability}}));
        return true;
    }
    if (verb == "add-disk") {
        if (!need(3, "FS POOL DISK"))
            return false;
        SimFilesystem* fs = c.filesystem(args[0]);
        if (fs == nullptr) {
            *error = "no filesystem " + args[0];
            return false;
        }
        SimDisk* existing = c.disk(args[2]);
        bool isFree = std::any_of(c.freeDisks.begin(), c.freeDisks.end(),
                                  [&](const SimDisk& d) { return d.name == args[2]; });
        if (existing != nullptr && !isFree) {
            *error = "disk " + args[2] + " already belongs to a filesystem";
            return false;
        }
        if (existing == nullptr) {
            SimDisk d;
            d.name = args[2];
            d.usage = "dataOnly";
            if (!c.nodes.empty()) {
                d.servers = {c.nodes.front().name};
                d.paths = {{c.nodes.front().name, "/dev/sdz"}};
            }
            d.totalSpace = 1LL << 40;
            d.sizeKB = d.totalSpace / 1024;
            c.freeDisks.push_back(d);
        }
        c.moveDisk(args[2], args[0], args[1]);
        fs = c.filesystem(args[0]);
        SimDisk* d = diskOf(*fs, args[2]);
        d->status = "up";
        d->availability = "up";
        if (d->fullBlockFreeSpace == 0)
            d->fullBlockFreeSpace = d->totalSpace;
        recomputeSpace(*fs);
        std::string node = managerOf(c, fs);
        events->push_back(event(c, "adddisk", {{"_node_", node}, {"_fs_", fs->name}, {"_disk_", d->name}}));
        events->push_back(event(c, "sdrChanged", {{"_node_", node}}));
        return true;
    }
    if (verb == "delete-disk") {
        if (!need(2, "FS DISK"))
            return false;
        SimFilesystem* fs = c.filesystem(args[0]);
        SimDisk* d = fs != nullptr ? diskOf(*fs, args[1]) : nullptr;
        if (d == nullptr) {
            *error = "no disk " + args[1] + " in filesystem " + args[0];
            return false;
        }
        for (auto& p : fs->pools)
            for (auto it = p.disks.begin(); it != p.disks.end(); ++it)
                if (it->name == args[1]) {
                    SimDisk freed = *it;
                    freed.freePoolName = p.name;
                    freed.sizeKB = freed.totalSpace / 1024;
                    freed.io.clear();
                    freed.dstatus = "ready";
                    p.disks.erase(it);
                    c.freeDisks.push_back(freed);
                    break;
                }
        recomputeSpace(*fs);
        std::string node = managerOf(c, fs);
        events->push_back(event(c, "deldisk", {{"_node_", node}, {"_fs_", fs->name}, {"_disk_", args[1]}}));
        events->push_back(event(c, "sdrChanged", {{"_node_", node}}));
        return true;
    }
    if (verb == "create-fs") {
        if (!need(1, "NAME"))
            return false;
        if (c.filesystem(args[0]) != nullptr) {
            *error = "filesystem " + args[0] + " exists";
            return false;
        }
        SimFilesystem fs;
        fs.name = args[0];
        fs.totalInodes = fs.freeInodes = 1000000;
        fs.defaultMountPoint = "/vesk/" + fs.name;
        fs.attributes = {{"blockSize", "4194304"}, {"defaultMountPoint", fs.defaultMountPoint}};
        fs.managerIp = managerOf(c, nullptr);
        SimPool pool;
        pool.name = "system";
        fs.pools.push_back(pool);
        c.filesystems.push_back(fs);
        // The first free disk, if any, becomes its first disk.
        if (!c.freeDisks.empty()) {
            std::string disk = c.freeDisks.front().name;
            c.moveDisk(disk, fs.name, "system");
            SimDisk* d = diskOf(*c.filesystem(fs.name), disk);
            d->status = d->availability = "up";
            d->fullBlockFreeSpace = d->totalSpace;
        }
        recomputeSpace(*c.filesystem(fs.name));
        std::string node = managerOf(c, nullptr);
        events->push_back(event(c, "createfs", {{"_node_", node}, {"_fs_", fs.name}}));
        events->push_back(event(c, "sdrChanged", {{"_node_", node}}));
        return true;
    }
    if (verb == "delete-fs") {
        if (!need(1, "NAME"))
            return false;
        if (c.filesystem(args[0]) == nullptr) {
            *error = "no filesystem " + args[0];
            return false;
        }
        size_t before = c.freeDisks.size();
        c.deleteFilesystem(args[0]);
        for (size_t i = before; i < c.freeDisks.size(); ++i)
            c.freeDisks[i].dstatus = "ready";
        std::string node = managerOf(c, nullptr);
        events->push_back(event(c, "deletefs", {{"_node_", node}, {"_fs_", args[0]}}));
        events->push_back(event(c, "sdrChanged", {{"_node_", node}}));
        return true;
    }
    if (verb == "event") {
        if (args.empty() || args.size() % 2 != 1) {
            *error = "usage: event WORD [KEYWORD VALUE]...";
            return false;
        }
        if (eventWord(args[0]) == nullptr) {
            *error = "unknown event word " + args[0];
            return false;
        }
        EventPairs given;
        for (size_t i = 1; i + 1 < args.size(); i += 2)
            given.emplace_back(args[i], args[i + 1]);
        events->push_back(event(c, args[0], given));
        return true;
    }
    if (verb == "tick") {
        long long s = 0;
        if (!need(1, "SECONDS"))
            return false;
        if (!parseCount(args[0], &s)) {
            *error = "not a number of seconds: " + args[0];
            return false;
        }
        advanceTime(c, s);
        return true;
    }
    *error = "unknown verb (fail-node, recover-node, disk-down, disk-up, add-disk, delete-disk, "
             "create-fs, delete-fs, event, tick, dump, stop)";
    return false;
}

bool changeByTool(SimCluster& c, const std::string& tool, const std::vector<std::string>& args,
                  ToolAnswer* answer, std::vector<std::string>*)
{
    *answer = ToolAnswer();
    if (tool == "vklsfileset")
        return filesetListing(c, args, answer);
    if (tool == "kxlsfs")
        return filesetCount(c, args, answer);
    if (changeFileset(c, tool, args, answer) || recoveryGroupTool(c, tool, args, answer))
        return true;
    return quotaTool(c, tool, args, answer);
}

} // namespace qvsim
