// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_finding.h"

#include <array>
#include <cstddef>

namespace bootweave {
namespace {

constexpr std::array kKindTexts{
    "unreadable",   "not-loaded",     "syntax",      "ignored",      "unknown-key",
    "unread-key",   "repeated-key",   "flags",       "run-once",     "command",
    "writable",     "duplicate-name", "debug-line",  "debug-file",   "cycle",
    "not-provided", "not-required",   "init-script", "no-operation",
};
static_assert(kKindTexts.size() == static_cast<std::size_t>(FindingKind::kNoOperation) + 1);

}  // namespace

const char* SeverityText(Severity severity) {
    return severity == Severity::kError ? "error" : "warning";
}

const char* FindingKindText(FindingKind kind) {
    return kKindTexts.at(static_cast<std::size_t>(kind));
}

}  // namespace bootweave
