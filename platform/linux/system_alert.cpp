// SPDX-License-Identifier: Apache-2.0
#include "platform/system_alert.h"

#include <syslog.h>

#include "platform/linux/kernel_record.h"
#include "platform/log.h"

void MantleCtl::System::SystemInfoImpl::SetSystemAlert(const std::string& message) {
    Log_Syslog(LOG_ALERT, "%s", message.c_str());
    static_cast<void>(bootweave::WriteKernelRecord(LOG_ALERT, message));  // there is nobody left to tell
}
