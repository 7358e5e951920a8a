#pragma once

#include "vesk/invocation/Options.h"
#include "vesk/terminal/Output.h"

namespace vesk {

// Each carries a command out and returns what to exit with; a Failure says why it could not.

ExitCode runDevices(const Options& options, Output& output);
ExitCode runInfo(const Options& options, Output& output);
ExitCode runWatch(const Options& options, Output& output);

ExitCode runPair(const Options& options, Output& output);
ExitCode runUnpair(const Options& options, Output& output);
ExitCode runDoctor(const Options& options, Output& output);

ExitCode runList(const Options& options, Output& output);
ExitCode runGet(const Options& options, Output& output);
ExitCode runPlay(const Options& options, Output& output);
ExitCode runAdd(const Options& options, Output& output);
ExitCode runRemove(const Options& options, Output& output);
ExitCode runRename(const Options& options, Output& output);
ExitCode runReplace(const Options& options, Output& output);
ExitCode runSync(const Options& options, Output& output);
ExitCode runRebuild(const Options& options, Output& output);

ExitCode runUndo(const Options& options, Output& output);
ExitCode runHistory(const Options& options, Output& output);
ExitCode runBackup(const Options& options, Output& output);
ExitCode runRestore(const Options& options, Output& output);

ExitCode runInspect(const Options& options, Output& output);
ExitCode runPrepare(const Options& options, Output& output);

ExitCode runCheck(const Options& options, Output& output);

ExitCode runPluginStatus(const Options& options, Output& output);
ExitCode runPluginInstall(const Options& options, Output& output);
ExitCode runPluginValidate(const Options& options, Output& output);
/// Goes on as the plug-in's program; returns only by a Failure.
ExitCode runPluginRun(const Options& options, Output& output);

} // namespace vesk
