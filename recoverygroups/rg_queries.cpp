// The recovery group queries: each runs one recovery group tool (or two per
// array) through the common tool road, reads its lines against the line
// templates, and fills the caller's records.

#include <quelvane/kx_log.h>
#include <quelvane/recovery_group.h>

#include "poll/tools/tool_runner_internal.h"
#include "recoverygroups/rg_lines_internal.h"

#include <cstdio>
#include <string>

using qv_rg::RgLineFields;

int nRGDefined = -1;

namespace {

const char kSdrCommand[] = "/usr/kpx/vesk/bin/vksdrquery sdrq_recovery_group_info all 2>/dev/null";

// The road of every recovery group tool: popen, "popen(%s) failed\n" on
// stderr when it cannot start, the header thrown away unless told otherwise,
// each further line handed on, pclose. Exit statuses are logged by the
// callers, each with its own words.
qv::ToolRunResult runRgTool(const char* who, const std::string& command, int skipHeader,
                            const qv::ToolLineFn& onLine)
{
    qv::ToolRunOptions opts;
    opts.lineSize = 400;
    opts.skipFirst = skipHeader;
    opts.openFailFormat = nullptr;
    opts.openFailStderrFormat = "popen(%s) failed\n";
    opts.logExitStatus = false;
    return qv::runTool(who, command.c_str(), onLine, opts);
}

std::string format(const char* fmt, const char* a, const char* b = nullptr)
{
    std::string out;
    size_t n = snprintf(nullptr, 0, fmt, a, b) + 1;
    out.resize(n);
    snprintf(&out[0], n, fmt, a, b);
    out.resize(n - 1);
    return out;
}

} // namespace

int getRGDefinedSDR()
{
    int lineNo = 0;
    int count = 0;
    RgLineFields f;
    f.clear();
    qv::ToolRunResult r = runRgTool("getRGDefinedSDR", kSdrCommand, 1, [&](char* line) {
        lineNo++;
        f.clearNumbers();
        if (qv_rg::parseRgLine(qv_rg::kSdrLine, line, &f) < 5)
            return true;
        if (lineNo == 1 && f.n1 == 19) {
            if (nRGDefined > 0)
                nRGDefined = 0;
            count = 0;
            return false;
        }
        count++;
        return true;
    });
    // A tool that cannot start counts as failed: -1, nRGDefined as it was.
    if (!r.started)
        return -1;
    if (r.exitStatus != 0) {
        kx_log(2, "getRGDefinedSDR", "pclose exit status: %d\n", r.exitStatus);
        return -1;
    }
    if (nRGDefined <= 0 && count >= 0)
        nRGDefined = count;
    return count;
}

int orluRGDefined()
{
    if (nRGDefined != -1)
        return nRGDefined;
    int n = getRGDefinedSDR();
    if (n >= 0)
        nRGDefined = n;
    return nRGDefined;
}

int getNsdRAIDParameters(orluNsdRAIDConfigParms* parms, int* len)
{
    if (parms == nullptr || *len < 1)
        return -1;
    int result = 0;
    int stored = 0;
    int lines = 0;
    RgLineFields f;
    qv::ToolRunResult r = runRgTool("getNsdRAIDParameters", "/usr/kpx/vesk/bin/vklsconfig nsdraid -Y 2>/dev/null",
                                    1, [&](char* line) {
        f.clear();
        if (qv_rg::parseRgLine(qv_rg::kConfigLine, line, &f) == 4) {
            if (stored < *len) {
                parms->updateNsdRAIDConfigParm(stored, f.t[0], f.t[1]);
                stored++;
            } else {
                result = 12;
            }
        }
        lines++;
        return true;
    });
    if (!r.started)
        return 1;
    kx_log(0, "getNsdRAIDParameters", "read %d lines rc %d\n", lines, result);
    if (r.exitStatus != 0) {
        // The number logged is the result so far, not the status.
        kx_log(2, "getNsdRAIDParameters", "pclose exit status: %d\n", result);
        return r.exitStatus;
    }
    parms->nParms = stored;
    *len = lines;
    return result;
}

int getNsdRAIDSdrInfo(orluRecoveryGroupSdrInfo* array, int* len)
{
    if (array == nullptr || *len < 1)
        return -1;
    int result = 0;
    int lines = 0;
    int stored = 0;
    orluRecoveryGroupSdrInfo scratch;
    // The texts are not cleared between lines: a line that does not match
    // counts as a row with the texts of the line before it.
    RgLineFields f;
    f.clear();
    qv::ToolRunResult r = runRgTool("getNsdRAIDSdrInfo", kSdrCommand, 1, [&](char* line) {
        lines++;
        scratch.init();
        f.clearNumbers();
        qv_rg::parseRgLine(qv_rg::kSdrLine, line, &f);
        if (lines == 1 && f.n1 == 19) {
            result = 19;
            if (nRGDefined > 0)
                nRGDefined = 0;
            return false;
        }
        scratch.update(f.t[0], f.t[1], f.t[2]);
        if (stored >= *len) {
            kx_log(0, "getRgSdrInfo", "Warning: not enough memory, curLen %d, nRgSdrAllocated %d!!!\n",
                   lines - 1, *len);
            result = 12;
            return true;
        }
        array[stored].update(scratch.rgName, scratch.rgServers, scratch.rgId);
        array[stored].print_orluRecoveryGroupSdrInfo();
        stored++;
        return true;
    });
    if (!r.started)
        return -1;
    kx_log(0, "getRgSdrInfo", "read %d lines rc %d\n", lines, result);
    *len = lines;
    if (lines > nRGDefined)
        nRGDefined = lines;
    if (r.exitStatus != 0) {
        kx_log(2, "getNsdRAIDSdrInfo", "pclose exit status: %d\n", result);
        return r.exitStatus;
    }
    return result;
}

int getRecoveryGroup(char* name)
{
    int lines = 0;
    qv::ToolRunResult r = runRgTool("getRecoveryGroup",
                                    format("/usr/kpx/vesk/bin/vklsrecoverygroup %s -Y 2>/dev/null", name),
                                    0, [&](char* line) {
        kx_log(0, "getRecoveryGroup", "%s", line);
        lines++;
        return true;
    });
    if (!r.started)
        return 1;
    kx_log(0, "getRecoveryGroup", "%s read %d lines err %d\n", name, lines, 0);
    if (r.exitStatus != 0)
        kx_log(2, "getRecoveryGroup", "pclose exit status: %d\n", r.exitStatus);
    return r.exitStatus;
}

int getRecoveryGroupSummary(orluRecoveryGroup* rg)
{
    const char* who = "getRecoveryGroupSummary";
    int rgFound = 0;
    int serverFound = 0;
    int arrays = 0;
    int lines = 0;
    int err = 19;
    if (nRGDefined >= 1) {
        // The blanks behind the first bar stand as they are.
        std::string cmd = format("/usr/kpx/vesk/bin/vklsrecoverygroup %s -Y 2>/dev/null |            "
                                 "grep -e Summary -e server | grep -v HEADER",
                                 rg->rgName);
        RgLineFields f;
        qv::ToolRunResult r = runRgTool(who, cmd, 0, [&](char* line) {
            kx_log(0, who, "%s\n", line);
            f.clear();
            lines++;
            if (rgFound == 0 && qv_rg::parseRgLine(qv_rg::kRgSummaryLine, line, &f) == 5) {
                rgFound = 1;
                kx_log(0, who, "FOUND rgSummary: %s, nDas %d, nVdisks %d nPdisks %d\n", f.t[0],
                       f.i[0], f.i[1], f.i[2]);
                rg->updateRgSummary(f.i[0], f.i[1], f.i[2]);
                return true;
            }
            if (arrays < 16 && qv_rg::parseRgLine(qv_rg::kDaSummaryLine, line, &f) == 12) {
                kx_log(0, who,
                       "FOUND daSummary: %s nDaVdisks %d nDaPdisks %d nDaSpares %d"
                       "replaceThr %d freeSpace %d scrubDuration %d bgTaskType %s bgTaskPct %d "
                       "priority %s\n",
                       f.t[0], f.i[0], f.i[1], f.i[2], f.i[3], static_cast<int>(f.ll), f.i[4], f.t[2],
                       f.i[5], f.t[3]);
                orluRecoveryGroupDeclusteredArray* da = rg->getDeclusteredArrayP(arrays);
                if (da != nullptr) {
                    da->update(f.t[0], f.t[1], f.i[0], f.i[1], f.i[2], f.i[3],
                               static_cast<unsigned long long>(f.ll), f.i[4], f.t[2], f.i[5], f.t[3]);
                    da->allocDiskArrays(da->daPdisks, da->daVdisks);
                }
                arrays++;
                return true;
            }
            if (serverFound == 0 && qv_rg::parseRgLine(qv_rg::kServerLine, line, &f) == 3) {
                kx_log(0, who, "FOUND server: activeServer %s serverList %s\n", f.t[0], f.t[1]);
                rg->updateRgServers(f.t[0], f.t[1]);
                serverFound = 1;
            }
            return true;
        });
        if (!r.started)
            return 1;
        if (r.exitStatus != 0) {
            kx_log(2, who, "pclose exit status: %d\n", r.exitStatus);
            err = r.exitStatus;
        } else {
            err = (rgFound != 0 && lines > 0) ? 0 : 19;
        }
    }
    kx_log(0, who, "%s rgFound %d, daFound %d, serverFound %d, read %d lines, err %d\n", rg->rgName,
           rgFound, arrays, serverFound, lines, err);
    return err;
}

int getRecoveryGroupDeclusteredArrays(orluRecoveryGroup* rg)
{
    const char* who = "getRecoveryGroupDeclusteredArrays";
    if (nRGDefined < 1) {
        kx_log(0, who, "%s err %d\n", rg->rgName, 19);
        return 19;
    }
    if (rg->nDeclusteredArrays < 1) {
        kx_log(0, who, "%s err %d\n", rg->rgName, 2);
        return 2;
    }
    int status = 0;
    for (int idx = 0; idx < rg->nDeclusteredArrays && status == 0; idx++) {
        orluRecoveryGroupDeclusteredArray* da = rg->getDeclusteredArrayP(idx);
        if (da == nullptr) {
            kx_log(0, who, "getDeclusteredArrayP %d nDas %d rgDAP NULL", idx, rg->nDeclusteredArrays);
            kx_log(0, who, "%s err %d\n", rg->rgName, 0);
            return 0;
        }
        kx_log(0, who, "RG %s DA %s:\n", rg->rgName, da->daName);

        RgLineFields f;
        int row = 0;
        int lines = 0;
        qv::ToolRunResult r = runRgTool(
            who, format("/usr/kpx/vesk/bin/vklspdisk %s --declustered-array %s -Y 2>/dev/null", rg->rgName,
                        da->daName),
            1, [&](char* line) {
                kx_log(0, who, "%s", line);
                f.clear();
                if (qv_rg::parseRgLine(qv_rg::kPdiskLine, line, &f) >= 8) {
                    orluDeclusteredArrayPdisk* p = da->getDeclusteredArrayPdiskP(row);
                    if (p != nullptr)
                        p->update(f.t[0], qv_rg::pdiskValueOf(f.f), f.t[1], f.t[4],
                                  static_cast<unsigned long long>(f.ll), f.t[5], f.t[6]);
                    row++;
                }
                lines++;
                return true;
            });
        if (!r.started)
            return 1;
        kx_log(0, who, "%s %s pdisks %d\n", rg->rgName, da->daName, lines);
        if (r.exitStatus != 0) {
            status = r.exitStatus;
            break;
        }

        row = 0;
        r = runRgTool(who,
                      format("/usr/kpx/vesk/bin/vklsvdisk --recovery-group %s --declustered-array %s -Y "
                             "2>/dev/null",
                             rg->rgName, da->daName),
                      1, [&](char* line) {
                          kx_log(0, who, "%s", line);
                          f.clear();
                          if (qv_rg::parseRgLine(qv_rg::kVdiskLine, line, &f) >= 8) {
                              orluDeclusteredArrayVdisk* v = da->getDeclusteredArrayVdiskP(row);
                              if (v != nullptr)
                                  v->update(f.t[0], f.t[1], f.i[0], static_cast<unsigned long long>(f.ll),
                                            f.t[4], f.t[5]);
                              row++;
                          }
                          return true;
                      });
        if (!r.started)
            return 1;
        if (r.exitStatus != 0)
            status = r.exitStatus;
    }
    if (status != 0) {
        kx_log(2, "getRecoveryGroupDeclusteredArrays:vklsvdisk", "pclose exit status: %d\n", status);
        kx_log(0, who, "%s err %d\n", rg->rgName, status);
        return status;
    }
    kx_log(0, who, "%s err %d\n", rg->rgName, 0);
    return 0;
}
