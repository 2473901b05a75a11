// SPDX-License-Identifier: Apache-2.0
#include "analyze/verify_text.h"

#include <cstddef>
#include <string>
#include <string_view>

#include "util/harmless_text.h"
#include "util/line_buffer.h"

namespace bootweave {
namespace {

constexpr std::string_view kRed = "\033[31m";
constexpr std::string_view kYellow = "\033[33m";
constexpr std::string_view kPlain = "\033[0m";

std::string Count(std::size_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

void WriteHarmless(std::ostream& out, std::string_view text) {
    LineBuffer line;
    AppendHarmless(line, text);
    out << line.view();
}

void WriteSeverity(std::ostream& out, Severity severity, bool coloured) {
    const char* text = SeverityText(severity);
    if (coloured) {
        out << (severity == Severity::kError ? kRed : kYellow) << text << kPlain;
    } else {
        out << text;
    }
}

}  // namespace

void WriteVerifyText(std::ostream& out, const VerifyReport& report, const TextStyle& style) {
    for (const Finding& finding : report.findings) {
        WriteHarmless(out, finding.file);
        out << ": ";
        WriteSeverity(out, finding.severity, style.coloured);
        out << ": ";
        WriteHarmless(out, finding.text);
        out << "\n";
    }
    out << Count(report.plugins, "plugin") << ": ";
    if (report.findings.empty()) {
        out << "nothing is wrong\n";
    } else {
        out << Count(report.Count(Severity::kError), "error") << ", "
            << Count(report.Count(Severity::kWarning), "warning") << "\n";
    }
}

}  // namespace bootweave
