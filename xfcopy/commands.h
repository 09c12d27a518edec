// What there is besides copying: list, show, cancel, errors, history.
#ifndef XFCOPY_COMMANDS_H
#define XFCOPY_COMMANDS_H

#include "xfcopy/history.h"
#include "xfcopy/options.h"
#include "xfcopy/report.h"
#include "xfcopy/table.h"

namespace xfcopy {

// Does what `options` ask for, and reports it. Signals have to be held back.
Status run_command(CopyTable &table, History &history, const Options &options,
                   Report &report);

} // namespace xfcopy

#endif
