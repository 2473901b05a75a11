// SPDX-License-Identifier: Apache-2.0
#include "platform/poll.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/log.h"
#include "util/error_text.h"
#include "util/retry.h"
#include "util/unique_fd.h"

namespace {

using bootweave::RetryOnEintr;
using bootweave::UniqueFd;

constexpr int kReadPeriodic = 0x15;
constexpr int kDescriptor = 2;

struct Registration {
    std::uint64_t id;  ///< never used twice, unlike a descriptor's number
    int callback_class;
    int flags;
    PollerFunction function;
    void* client_data;
    int type;
    int descriptor;
};

/// The process-wide loop.
class Poller {
  public:
    /// Empties the loop and makes it this process's own.
    void Init() {
        registrations_.clear();
        if (owner_ != ::getpid()) {
            // Inherited over a fork. The child may have closed every descriptor since then, and the number
            // may be another file's: it is forgotten, not closed. At worst one close-on-exec descriptor is
            // lost.
            static_cast<void>(wake_.Release());
            owner_ = ::getpid();
        }
        if (!wake_.valid()) {
            wake_.Reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        }
        // One that stands already is kept, for threads that notify through it at this moment.
        Drain();
    }

    bool Add(Registration registration) {
        if (!wake_.valid() || ::fcntl(registration.descriptor, F_GETFD) == -1) {
            return false;
        }
        registration.id = next_id_++;
        registrations_.push_back(registration);
        return true;
    }

    bool Remove(int callback_class, int flags, PollerFunction function, void* client_data, int type) {
        const auto matches = [&](const Registration& r) {
            return r.callback_class == callback_class && r.flags == flags && r.function == function &&
                   r.client_data == client_data && r.type == type;
        };
        const auto found = std::find_if(registrations_.begin(), registrations_.end(), matches);
        if (found == registrations_.end()) {
            return false;
        }
        registrations_.erase(found);
        return true;
    }

    /// Any thread, and signal handlers.
    void Wake() const {
        const int saved = errno;
        const std::uint64_t one = 1;
        // Fails only when so many are pending already that the loop wakes anyway.
        static_cast<void>(RetryOnEintr([&] { return ::write(wake_.get(), &one, sizeof one); }));
        errno = saved;
    }

    /// Sleeps until something is to be done, and does it. \return false when the loop cannot go on
    bool RunOnce() {
        std::vector<pollfd> descriptors{{wake_.get(), POLLIN, 0}};
        std::vector<std::uint64_t> ids{0};
        for (const Registration& registration : registrations_) {
            descriptors.push_back({registration.descriptor, POLLIN, 0});
            ids.push_back(registration.id);
        }
        if (RetryOnEintr([&] { return ::poll(descriptors.data(), descriptors.size(), -1); }) < 0) {
            Log_Level(2, "Poll loop failed: %s\n", bootweave::LastErrorText().c_str());
            return false;
        }
        if (descriptors[0].revents != 0) {
            Drain();
        }
        for (std::size_t i = 1; i < descriptors.size(); ++i) {
            if (descriptors[i].revents != 0) {
                Dispatch(ids[i], descriptors[i].revents);
            }
        }
        return true;
    }

    [[nodiscard]] bool ready() const { return wake_.valid(); }

  private:
    /// Calls one callback, unless an earlier one of this round has removed it.
    void Dispatch(std::uint64_t id, short events) {
        const auto found = std::find_if(registrations_.begin(), registrations_.end(),
                                        [&](const Registration& r) { return r.id == id; });
        if (found == registrations_.end()) {
            return;
        }
        const Registration registration = *found;  // the callback may change the list
        if ((events & POLLNVAL) != 0) {
            registrations_.erase(found);  // would be reported for ever
            Log_Level(3, "Poll loop: descriptor %d is not open, its callback is removed\n",
                      registration.descriptor);
            return;
        }
        registration.function(registration.client_data);
    }

    void Drain() const {
        std::uint64_t count = 0;
        static_cast<void>(RetryOnEintr([&] { return ::read(wake_.get(), &count, sizeof count); }));
    }

    std::vector<Registration> registrations_;
    std::uint64_t next_id_ = 1;
    UniqueFd wake_;  ///< written to wake the loop; open from the first Init() of the process to its end
    pid_t owner_ = -1;
};

Poller g_poller;

/// The flag may be set by another thread, which then notifies.
bool IsSet(const bool* flag) {
    return __atomic_load_n(flag, __ATOMIC_ACQUIRE);
}

}  // namespace

void Poll_InitDefault() {
    g_poller.Init();
}

bool Poll_Callback(int callback_class, int flags, PollerFunction function, void* client_data, int type,
                   int descriptor, void* lock) {
    if (flags != kReadPeriodic || type != kDescriptor || function == nullptr || lock != nullptr) {
        return false;
    }
    return g_poller.Add({0, callback_class, flags, function, client_data, type, descriptor});
}

void Poll_Loop(int /*loop_class*/, const bool* exit, int /*flags*/) {
    if (!g_poller.ready()) {
        Log_Level(2, "Poll loop failed: not initialised\n");
        return;
    }
    while (!IsSet(exit) && g_poller.RunOnce()) {
    }
}

void Poll_NotifyChange(int /*callback_class*/) {
    g_poller.Wake();
}

bool Poll_CallbackRemove(int callback_class, int flags, PollerFunction function, void* client_data,
                         int type) {
    return g_poller.Remove(callback_class, flags, function, client_data, type);
}
