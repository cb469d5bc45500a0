// What people should know beside the results.
#pragma once

#include <cstdio>
#include <string>

#include "client/ctl/options.h"

namespace tessel::ctl {

// Programs are not told, and nobody who wants it quiet.
inline void ShowNote(const std::string& note, const Options& options, std::FILE* err) {
    if (options.json || options.quiet || !options.fields.empty()) return;
    (void)std::fprintf(err, "note: %s\n", note.c_str());
}

}  // namespace tessel::ctl
