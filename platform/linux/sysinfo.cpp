// SPDX-License-Identifier: Apache-2.0
#include "platform/sysinfo.h"

#include <cerrno>

#include "platform/linux/kernel_record.h"
#include "util/error_text.h"

namespace {

constexpr int kNotice = 5;

}  // namespace

void MantleCtl::Util::Sysinfo::Set() {
    const int error = node_ == KSI_NODE_system_log ? bootweave::WriteKernelRecord(kNotice, input_) : ENODEV;
    if (error != 0) {
        throw Hostrig::Lib::HostrigException(bootweave::ErrorText(error));
    }
}
