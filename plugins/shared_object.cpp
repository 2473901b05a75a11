// SPDX-License-Identifier: Apache-2.0
#include "plugins/shared_object.h"

#include <cerrno>

#include <dlfcn.h>
#include <sys/stat.h>

#include "util/error_text.h"
#include "util/exception.h"

namespace bootweave {
namespace {

/// The loader's text for what failed last, or nothing; it forgets it.
const char* LoaderError() {
    return ::dlerror();  // NOLINT(concurrency-mt-unsafe): kept per thread
}

void* Open(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw Exception(path + ": cannot open shared object file: " + ErrorText(ENOENT));
    }
    LoaderError();
    void* handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL);
    if (handle == nullptr) {
        const char* text = LoaderError();
        throw Exception(text != nullptr ? text : "unknown error");
    }
    return handle;
}

}  // namespace

SharedObject::SharedObject(const std::string& path) : handle_(Open(path)) {}

SharedObject::~SharedObject() {
    if (handle_ != nullptr) {
        ::dlclose(handle_);
    }
}

const void* SharedObject::Symbol(const char* name) const {
    LoaderError();
    const void* symbol = ::dlsym(handle_, name);
    if (const char* text = LoaderError(); text != nullptr) {
        throw Exception(text);
    }
    return symbol;
}

}  // namespace bootweave
