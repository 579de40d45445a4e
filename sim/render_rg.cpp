// The recovery group tools: "vksdrquery sdrq_recovery_group_info all",
// "vklsconfig nsdraid -Y", "vklsrecoverygroup RG -Y", "vklspdisk RG
// --declustered-array DA -Y" and "vklsvdisk --recovery-group RG
// --declustered-array DA -Y".
#include "sim/changes.h"
#include "sim/render.h"

#include <cstdio>

namespace qvsim {

namespace {

std::string joinNames(const std::vector<std::string>& v)
{
    std::string out;
    for (size_t i = 0; i < v.size(); ++i)
        out += (i == 0 ? "" : ",") + v[i];
    return out;
}

const SimRecoveryGroup* rgOf(const SimCluster& c, const std::string& name)
{
    for (const auto& rg : c.recoveryGroups)
        if (rg.name == name)
            return &rg;
    return nullptr;
}

const SimDeclusteredArray* daOf(const SimRecoveryGroup& rg, const std::string& name)
{
    for (const auto& da : rg.arrays)
        if (da.name == name)
            return &da;
    return nullptr;
}

std::string priority(double v)
{
    char buf[32];
    snprintf(buf, sizeof(buf), "%.2f", v);
    return buf;
}

void noSuchRg(ToolAnswer* a, const std::string& tool, const std::string& name)
{
    a->status = 2;
    a->err = tool + ": Recovery group " + name + " does not exist.\n";
}

} // namespace

std::string recoveryGroupSdrOutput(const SimCluster& c)
{
    std::string out = "vksdrquery:sdrq_recovery_group_info:HEADER:version:::name:servers:id:\n";
    if (c.recoveryGroups.empty())
        return out + "vksdrquery:sdrq_recovery_group_info:19:1:::-:-:-:\n";
    for (const auto& rg : c.recoveryGroups)
        out += "vksdrquery:sdrq_recovery_group_info:0:1:::" + rg.name + ":" + joinNames(rg.servers) + ":" +
               rg.id + ":\n";
    return out;
}

std::string nsdRaidConfigOutput(const SimCluster& c)
{
    std::string out = "vklsconfig::HEADER:version:reserved:reserved:configParameter:value::\n";
    for (const auto& kv : c.nsdRaidConfig)
        out += "vklsconfig::0:1:::" + kv.first + ":" + percentEncode(kv.second) + "::\n";
    return out;
}

std::string recoveryGroupOutput(const SimRecoveryGroup& rg)
{
    int vdisks = 0, pdisks = 0;
    for (const auto& da : rg.arrays) {
        vdisks += static_cast<int>(da.vdisks.size());
        pdisks += static_cast<int>(da.pdisks.size());
    }
    std::string out =
        "vklsrecoverygroup:rgSummary:HEADER:version:reserved:reserved:recoveryGroupName:"
        "declusteredArrays:vdisks:pdisks:\n"
        "vklsrecoverygroup:rgSummary:0:1:::" + rg.name + ":" + std::to_string(rg.arrays.size()) + ":" +
        std::to_string(vdisks) + ":" + std::to_string(pdisks) + ":\n"
        "vklsrecoverygroup:daSummary:HEADER:version:reserved:reserved:declusteredArrayName:needsService:"
        "vdisks:pdisks:spares:replaceThreshold:freeSpace:scrubDuration:backgroundActivity:"
        "percentComplete:priority:\n";
    for (const auto& da : rg.arrays)
        out += "vklsrecoverygroup:daSummary:0:1:::" + da.name + ":" + da.needsService + ":" +
               std::to_string(da.vdisks.size()) + ":" + std::to_string(da.pdisks.size()) + ":" +
               std::to_string(da.spares) + ":" + std::to_string(da.replaceThreshold) + ":" +
               std::to_string(da.freeSpace) + ":" + std::to_string(da.scrubDuration) + ":" +
               da.backgroundTask + ":" + std::to_string(da.taskPercentComplete) + ":" + da.taskPriority +
               ":\n";
    out += "vklsrecoverygroup:server:HEADER:version:reserved:reserved:activeServer:servers:\n"
           "vklsrecoverygroup:server:0:1:::" + (rg.servers.empty() ? std::string("-") : rg.servers.front()) +
           ":" + joinNames(rg.servers) + ":\n";
    return out;
}

std::string pdiskOutput(const SimRecoveryGroup& rg, const SimDeclusteredArray& da)
{
    std::string out = "vklspdisk:pdisk:HEADER:version:reserved:reserved:replacementPriority:pdiskName:"
                      "declusteredArray:paths:device:state:capacity:fru:location::\n";
    (void)rg;
    for (const auto& p : da.pdisks)
        out += "vklspdisk:pdisk:0:1:::" + priority(p.replacementPriority) + ":" + p.name + ":" + da.name + ":" +
               p.paths + ":" + p.device + ":" + p.state + ":" + std::to_string(p.sizeBytes) + ":" + p.fru +
               ":" + p.location + "::\n";
    return out;
}

std::string vdiskOutput(const SimRecoveryGroup& rg, const SimDeclusteredArray& da)
{
    std::string out = "vklsvdisk:vdisk:HEADER:version:reserved:reserved:vdiskName:raidCode:recoveryGroup:"
                      "declusteredArray:blockSizeInKib:vdiskSize:state:remarks:\n";
    for (const auto& v : da.vdisks)
        out += "vklsvdisk:vdisk:0:1:::" + v.name + ":" + v.raidCode + ":" + rg.name + ":" + da.name + ":" +
               std::to_string(v.blockSizeKiB) + ":" + std::to_string(v.sizeBytes) + ":" + v.state + ":" +
               v.remarks + ":\n";
    return out;
}

bool recoveryGroupTool(const SimCluster& c, const std::string& tool, const std::vector<std::string>& w,
                       ToolAnswer* a)
{
    if (tool == "vksdrquery" && w.size() == 2 && w[0] == "sdrq_recovery_group_info" && w[1] == "all") {
        a->out = recoveryGroupSdrOutput(c);
        return true;
    }
    if (tool == "vklsconfig" && w.size() == 2 && w[0] == "nsdraid" && w[1] == "-Y") {
        a->out = nsdRaidConfigOutput(c);
        return true;
    }
    if (tool == "vklsrecoverygroup" && w.size() == 2 && w[1] == "-Y") {
        const SimRecoveryGroup* rg = rgOf(c, w[0]);
        if (rg == nullptr)
            noSuchRg(a, tool, w[0]);
        else
            a->out = recoveryGroupOutput(*rg);
        return true;
    }
    if (tool == "vklspdisk" && w.size() == 4 && w[1] == "--declustered-array" && w[3] == "-Y") {
        const SimRecoveryGroup* rg = rgOf(c, w[0]);
        const SimDeclusteredArray* da = rg != nullptr ? daOf(*rg, w[2]) : nullptr;
        if (da == nullptr)
            noSuchRg(a, tool, w[0] + " with declustered array " + w[2]);
        else
            a->out = pdiskOutput(*rg, *da);
        return true;
    }
    if (tool == "vklsvdisk" && w.size() == 5 && w[0] == "--recovery-group" && w[2] == "--declustered-array" &&
        w[4] == "-Y") {
        const SimRecoveryGroup* rg = rgOf(c, w[1]);
        const SimDeclusteredArray* da = rg != nullptr ? daOf(*rg, w[3]) : nullptr;
        if (da == nullptr)
            noSuchRg(a, tool, w[1] + " with declustered array " + w[3]);
        else
            a->out = vdiskOutput(*rg, *da);
        return true;
    }
    return false;
}

} // namespace qvsim
