// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "plugins/native_metadata_reader.h"
#include "plugins/plugin.h"

namespace bootweave {

/// The program that runs an operation of a native plugin.
inline constexpr const char* kNativeExecutor = "/usr/lib/corvane/bootweave/nativeExecutor";

/// A plugin that is a shared object (see bootweave/native_plugin.h). Its code never runs in this process:
/// each method is a run of the native executor, whose streams are this process's own.
class NativePlugin : public Plugin {
  public:
    /// Reads the object's metadata.
    ///
    /// \param reader    used during this call only
    /// \param executor  another program in the native executor's place, for tests
    /// \throws Exception  as NativeMetadataReader::Read does
    NativePlugin(const std::string& name, const std::string& path, NativeMetadataReader& reader,
                 std::string executor = kNativeExecutor);

    void Start() override;
    /// True from version 2 on when the object has an operation for it.
    [[nodiscard]] bool SupportsHostProfile() const override;
    void ApplyHostProfile() override;

  private:
    void Run(const char* method) const;

    std::string path_;
    std::string executor_;
    bool has_apply_host_profile_ = false;
};

}  // namespace bootweave
