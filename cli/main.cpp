// quelvane: the command-line client of libquelvane. It shows the cluster's
// state, streams its events, watches it, reads its statistics and makes
// administrative changes, through the library's public interface only.
#include "cli/commands.h"
#include "cli/console.h"
#include "cli/daemon.h"
#include "cli/watchdog.h"

#include <quelvane/quelvane.h>

#include <CLI/CLI.hpp>

#include <functional>
#include <iostream>

using namespace qvcli;

namespace {

std::string versionText()
{
    return std::string("quelvane ") + QUELVANE_VERSION_TEXT + ", libquelvane " + std::to_string(libquelvaneVersion());
}

std::string joined(const std::vector<std::string>& v, const char* sep)
{
    std::string s;
    for (const std::string& x : v)
        s += (s.empty() ? "" : sep) + x;
    return s;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"Monitors and administers a clustered filesystem through libquelvane.\n"
                 "Every listing prints an aligned table, or with --json one JSON document.",
                 "quelvane"};
    app.set_version_flag("--version", versionText(), "Print the version of the client and of the library");
    app.require_subcommand(1);

    double timeout = 10.0;
    bool asJson = false;
    std::function<int()> action;

    auto timeoutOption = [&](CLI::App* a) {
        a->add_option("--timeout", timeout, "Seconds to wait for the daemon or a tool before giving up (default 10)")
            ->check(CLI::Range(0.1, 86400.0));
    };
    auto jsonFlag = [&](CLI::App* a) { a->add_flag("--json", asJson, "Print one JSON document instead of a table"); };
    timeoutOption(&app);

    // ---- inventory ----
    std::string fsArg, poolArg, nameArg;

    CLI::App* status = app.add_subcommand("status", "Cluster, manager, quorum, nodes by state, filesystems, daemon state");
    jsonFlag(status);
    timeoutOption(status);
    status->callback([&] { action = [&] { return cmdStatus(asJson); }; });

    CLI::App* nodes = app.add_subcommand("nodes", "The nodes of the cluster");
    jsonFlag(nodes);
    timeoutOption(nodes);
    nodes->callback([&] { action = [&] { return cmdNodes(asJson); }; });

    CLI::App* fs = app.add_subcommand("fs", "The filesystems with their capacity and use");
    jsonFlag(fs);
    timeoutOption(fs);
    fs->callback([&] { action = [&] { return cmdFilesystems(asJson); }; });

    CLI::App* pools = app.add_subcommand("pools", "The storage pools of every filesystem, or of FS");
    pools->add_option("FS", fsArg, "Filesystem");
    jsonFlag(pools);
    timeoutOption(pools);
    pools->callback([&] { action = [&] { return cmdPools(fsArg, asJson); }; });

    CLI::App* disks = app.add_subcommand("disks", "The disks of every filesystem, of FS, or of its POOL");
    disks->add_option("FS", fsArg, "Filesystem");
    disks->add_option("POOL", poolArg, "Storage pool of FS");
    jsonFlag(disks);
    timeoutOption(disks);
    disks->callback([&] { action = [&] { return cmdDisks(fsArg, poolArg, asJson); }; });

    CLI::App* freeDisks = app.add_subcommand("free-disks", "The disks that belong to no filesystem");
    jsonFlag(freeDisks);
    timeoutOption(freeDisks);
    freeDisks->callback([&] { action = [&] { return cmdFreeDisks(asJson); }; });

    CLI::App* mounts = app.add_subcommand("mounts", "The nodes that have each filesystem, or FS, mounted");
    mounts->add_option("FS", fsArg, "Filesystem");
    jsonFlag(mounts);
    timeoutOption(mounts);
    mounts->callback([&] { action = [&] { return cmdMounts(fsArg, asJson); }; });

    CLI::App* policies = app.add_subcommand("policies", "The installed policies of every filesystem, or of FS");
    policies->add_option("FS", fsArg, "Filesystem");
    jsonFlag(policies);
    timeoutOption(policies);
    policies->callback([&] { action = [&] { return cmdPolicies(fsArg, asJson); }; });

    CLI::App* filesets = app.add_subcommand("filesets", "The filesets of FS");
    filesets->add_option("FS", fsArg, "Filesystem")->required();
    jsonFlag(filesets);
    timeoutOption(filesets);
    filesets->callback([&] { action = [&] { return cmdFilesets(fsArg, asJson); }; });

    CLI::App* rg = app.add_subcommand("rg", "The recovery groups with their arrays, or NAME in depth with its disks");
    rg->add_option("NAME", nameArg, "Recovery group");
    jsonFlag(rg);
    timeoutOption(rg);
    rg->callback([&] { action = [&] { return cmdRecoveryGroups(nameArg, asJson); }; });

    // ---- statistics ----
    StatsOptions statsOpts;
    CLI::App* stats = app.add_subcommand("stats", "One family of the daemon's statistics, per node");
    stats->add_option("FAMILY", statsOpts.family, "One of: " + joined(statsFamilies(), ", "))->required();
    stats->add_option("--node", statsOpts.node, "Only the node with this address (or name)");
    stats->add_option("--unit", statsOpts.unit, "rpc: time unit of the samples: seconds, minutes, hours or days");
    stats->add_option("--count", statsOpts.count, "rpc: samples of that unit (1 to 60, hours 24, days 30)");
    jsonFlag(stats);
    timeoutOption(stats);
    stats->callback([&] {
        action = [&] {
            statsOpts.json = asJson;
            return cmdStats(statsOpts);
        };
    });

    // ---- events and watch ----
    std::vector<std::string> kinds;
    CLI::App* events = app.add_subcommand("events", "Print the daemon's events as they come, until interrupted");
    events->add_option("--kinds", kinds, "Only these kinds, separated by commas: " + joined(eventWords(), ","))
        ->delimiter(',');
    events->add_flag("--json", asJson, "One JSON object a line instead of text");
    timeoutOption(events);
    events->callback([&] { action = [&] { return cmdEvents(kinds, asJson); }; });

    double interval = 2.0;
    int busiest = 5;
    CLI::App* watch = app.add_subcommand("watch", "A refreshing view of nodes, filesystems and the busiest disks (q quits)");
    watch->add_option("--interval", interval, "Seconds between refreshes (default 2)")->check(CLI::Range(0.1, 3600.0));
    watch->add_option("--disks", busiest, "Busiest disks shown (default 5)")->check(CLI::Range(0, 1000));
    timeoutOption(watch);
    watch->callback([&] { action = [&] { return cmdWatch(interval, busiest); }; });

    // ---- administration ----
    std::string junction, newName, comment, targetArg;
    bool force = false;
    CLI::App* fileset = app.add_subcommand("fileset", "Create, link, unlink, delete or edit a fileset");
    fileset->require_subcommand(1);

    CLI::App* fsCreate = fileset->add_subcommand("create", "Create fileset NAME in FS (it starts unlinked)");
    fsCreate->add_option("FS", fsArg, "Filesystem")->required();
    fsCreate->add_option("NAME", nameArg, "Fileset")->required();
    fsCreate->add_option("--comment", comment, "A comment for the fileset");
    timeoutOption(fsCreate);
    fsCreate->callback([&] { action = [&] { return cmdFilesetCreate(fsArg, nameArg, comment); }; });

    CLI::App* fsLink = fileset->add_subcommand("link", "Link fileset NAME of FS at its junction");
    fsLink->add_option("FS", fsArg, "Filesystem")->required();
    fsLink->add_option("NAME", nameArg, "Fileset")->required();
    fsLink->add_option("--junction", junction, "Junction path (default: the tool's, under the mount point)");
    timeoutOption(fsLink);
    fsLink->callback([&] { action = [&] { return cmdFilesetLink(fsArg, nameArg, junction); }; });

    CLI::App* fsUnlink = fileset->add_subcommand("unlink", "Unlink fileset NAME of FS, or the one at --junction");
    fsUnlink->add_option("FS", fsArg, "Filesystem")->required();
    fsUnlink->add_option("NAME", nameArg, "Fileset");
    fsUnlink->add_option("--junction", junction, "Junction path of the fileset");
    fsUnlink->add_flag("--force", force, "Unlink even when files are open");
    timeoutOption(fsUnlink);
    fsUnlink->callback([&] { action = [&] { return cmdFilesetUnlink(fsArg, nameArg, junction, force); }; });

    CLI::App* fsDelete = fileset->add_subcommand("delete", "Delete fileset NAME of FS");
    fsDelete->add_option("FS", fsArg, "Filesystem")->required();
    fsDelete->add_option("NAME", nameArg, "Fileset")->required();
    fsDelete->add_flag("--force", force, "Delete even when it is linked");
    timeoutOption(fsDelete);
    fsDelete->callback([&] { action = [&] { return cmdFilesetDelete(fsArg, nameArg, force); }; });

    CLI::App* fsEdit = fileset->add_subcommand("edit", "Rename fileset NAME of FS (or the one at --junction), or change its comment");
    fsEdit->add_option("FS", fsArg, "Filesystem")->required();
    fsEdit->add_option("NAME", nameArg, "Fileset");
    fsEdit->add_option("--junction", junction, "Junction path of the fileset");
    fsEdit->add_option("--new-name", newName, "New name");
    CLI::Option* commentOpt = fsEdit->add_option("--comment", comment, "New comment");
    timeoutOption(fsEdit);
    fsEdit->callback([&] {
        action = [&] { return cmdFilesetEdit(fsArg, nameArg, junction, newName, comment, commentOpt->count() > 0); };
    });

    QuotaTarget quotaTarget;
    QuotaLimits limits;
    CLI::App* quota = app.add_subcommand("quota", "Read or set the quota of a user, group or fileset");
    quota->require_subcommand(1);
    auto quotaTargets = [&](CLI::App* a) {
        a->add_option("FS", fsArg, "Filesystem")->required();
        a->add_option("--user", quotaTarget.user, "User name");
        a->add_option("--group", quotaTarget.group, "Group name");
        a->add_option("--fileset", quotaTarget.fileset, "Fileset name");
        timeoutOption(a);
    };
    CLI::App* quotaGet = quota->add_subcommand("get", "Show the quota and use of one user, group or fileset in FS");
    quotaTargets(quotaGet);
    jsonFlag(quotaGet);
    quotaGet->callback([&] { action = [&] { return cmdQuotaGet(fsArg, quotaTarget, asJson); }; });
    CLI::App* quotaSet = quota->add_subcommand("set", "Set quota limits of one user, group or fileset in FS");
    quotaTargets(quotaSet);
    quotaSet->add_option("--block-soft", limits.blockSoft, "Soft block limit in KB")->check(CLI::NonNegativeNumber);
    quotaSet->add_option("--block-hard", limits.blockHard, "Hard block limit in KB")->check(CLI::NonNegativeNumber);
    quotaSet->add_option("--files-soft", limits.filesSoft, "Soft file limit, in thousands of files")
        ->check(CLI::NonNegativeNumber);
    quotaSet->add_option("--files-hard", limits.filesHard, "Hard file limit, in thousands of files")
        ->check(CLI::NonNegativeNumber);
    quotaSet->callback([&] { action = [&] { return cmdQuotaSet(fsArg, quotaTarget, limits); }; });

    std::string aclType;
    CLI::App* acl = app.add_subcommand("acl", "Access control lists");
    acl->require_subcommand(1);
    CLI::App* aclCopy = acl->add_subcommand("copy", "Give DST the access control list of SRC");
    aclCopy->add_option("SRC", fsArg, "Source path")->required();
    aclCopy->add_option("DST", targetArg, "Target path")->required();
    aclCopy->add_option("--type", aclType, "ACL type: nfs4, posix or native (default: the tool's)");
    timeoutOption(aclCopy);
    aclCopy->callback([&] { action = [&] { return cmdAclCopy(fsArg, targetArg, aclType); }; });

    std::string owner, group;
    CLI::App* ownerCmd = app.add_subcommand("owner", "Ownership of files and directories");
    ownerCmd->require_subcommand(1);
    CLI::App* ownerSet = ownerCmd->add_subcommand("set", "Change the owner and/or the group of PATH");
    ownerSet->add_option("PATH", targetArg, "File or directory")->required();
    ownerSet->add_option("--owner", owner, "New owner (user name)");
    ownerSet->add_option("--group", group, "New group");
    timeoutOption(ownerSet);
    ownerSet->callback([&] { action = [&] { return cmdOwnerSet(targetArg, owner, group); }; });

    // A first word that is no option and no command is named as such, rather
    // than reported as a missing command.
    if (argc > 1 && argv[1][0] != '-') {
        bool known = false;
        for (const CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; }))
            known = known || sub->get_name() == argv[1];
        if (!known) {
            printError(std::string("unknown command \"") + argv[1] + "\" (see --help)");
            return kExitUsage;
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0)
            return app.exit(e);   // --help, --version
        std::string what = e.what();
        printError(what + " (see --help)");
        return kExitUsage;
    }
    if (!action) {
        printError("no command given (see --help)");
        return kExitUsage;
    }

    captureLibraryOutput();
    setTimeLimit(timeout);
    addToolDirToPath();
    int result = kExitFailure;
    try {
        result = action();
    } catch (const CliError& e) {
        printError(e.what());
        result = e.status();
    } catch (const std::exception& e) {
        printError(std::string("internal error: ") + e.what());
        result = kExitFailure;
    }
    fflush(out());
    stopWatchdog();
    return result;
}
