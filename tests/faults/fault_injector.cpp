// SPDX-License-Identifier: Apache-2.0

/// \file
/// Runs a program and makes one of its system calls fail; see the usage text, and tracer.h for names and
/// report.

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/wait.h>

#include "tests/faults/tracer.h"

namespace {

using namespace bootweave::faults;

constexpr int kBroken = 125;
constexpr int kWrongUsage = 2;

[[noreturn]] void EndWithUsage() {
    std::fputs(
        "usage: faultInjector --report FILE [--record] [--fault NAME CALL TURN ERRNO] [--own PATH]...\n"
        "                     -- PROGRAM [ARGUMENT...]\n"
        "\n"
        "Runs PROGRAM and ends with its status, or 128 + N when signal N ended it. The system call of this\n"
        "name, turn and call fails with this errno. --own names a further program whose processes are\n"
        "followed. --record reports every call.\n",
        stderr);
    std::exit(kWrongUsage);
}

/// Takes the words of the command line one after the other.
class Words {
  public:
    Words(int argc, char** argv) : next_(argv + 1), end_(argv + argc) {}
    [[nodiscard]] bool empty() const { return next_ == end_; }
    std::string Take() {
        if (empty()) {
            EndWithUsage();
        }
        return *next_++;
    }
    unsigned long TakeNumber() {
        const std::string word = Take();
        unsigned long number = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
        if (error != std::errc() || *end != '\0' || number == 0) {
            EndWithUsage();
        }
        return number;
    }

  private:
    char** next_;
    char** end_;
};

Fault TakeFault(Words& words) {
    Fault fault{.name = words.Take(), .call = words.Take(), .turn = words.TakeNumber(), .error = 0};
    fault.error = static_cast<int>(words.TakeNumber());
    return fault;
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

int main(int argc, char** argv) {
    Words words(argc, argv);
    Job job;
    std::string report_path;
    for (std::string word = words.Take(); word != "--"; word = words.Take()) {
        if (word == "--report") {
            report_path = words.Take();
        } else if (word == "--record") {
            job.record = true;
        } else if (word == "--fault") {
            job.fault = TakeFault(words);
        } else if (word == "--own") {
            job.own.insert(words.Take());
        } else {
            EndWithUsage();
        }
    }
    job.argv.push_back(words.Take());
    while (!words.empty()) {
        job.argv.push_back(words.Take());
    }
    job.own.insert(job.argv[0]);
    const std::unique_ptr<std::FILE, CloseFile> report(std::fopen(report_path.c_str(), "we"));
    if (report == nullptr) {
        std::fprintf(stderr, "faultInjector: %s: %s\n", report_path.c_str(), std::strerror(errno));
        return kBroken;
    }
    const std::optional<int> status = Tracer(std::move(job), report.get()).Run();
    if (!status.has_value()) {
        std::fprintf(stderr, "faultInjector: cannot follow a program: %s\n", std::strerror(errno));
        return kBroken;
    }
    return WIFSIGNALED(*status) ? 128 + WTERMSIG(*status) : WEXITSTATUS(*status);
}
