// SPDX-License-Identifier: Apache-2.0
#include "util/exception.h"

#include <utility>

namespace bootweave {

Exception::Exception(std::string message) : message_(std::move(message)) {}

const char* Exception::what() const noexcept {
    return message_.c_str();
}

MethodFailedException::MethodFailedException(const std::string& method, const std::string& plugin,
                                             const std::string& reason)
    : Exception(plugin + "->" + method + "() failed: " + reason) {}

NotImplementedException::NotImplementedException(const std::string& what)
    : Exception("method `" + what + "' is not implemented") {}

InvalidPluginException::InvalidPluginException(const std::string& plugin, const std::string& reason)
    : Exception("plugin `" + plugin + "' is invalid: " + reason) {}

}  // namespace bootweave
