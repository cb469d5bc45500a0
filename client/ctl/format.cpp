#include "client/ctl/format.h"

#include <fmt/format.h>

namespace tessel::ctl {

std::string FormatArguments(fmt::string_view pattern, fmt::format_args arguments) {
    return fmt::vformat(pattern, arguments);
}

}  // namespace tessel::ctl
