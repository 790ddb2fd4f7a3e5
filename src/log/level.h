// level.h - the levels that the library itself uses; the others are those of syslog.
#pragma once

namespace vn::log {

constexpr int kError = 3;
constexpr int kTelnetOnly = 8; // for the live stream and nothing else
constexpr int kSilent = 23;    // asks a dump to print nothing

} // namespace vn::log
