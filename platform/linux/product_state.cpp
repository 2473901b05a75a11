// SPDX-License-Identifier: Apache-2.0
#include "platform/product_state.h"

const char* ProductState_GetName() {
    return "bootweave";
}

const char* ProductState_GetVersion() {
    return BOOTWEAVE_VERSION;
}

const char* ProductState_GetBuildNumberString() {
    return "build-" BOOTWEAVE_BUILD_NUMBER;
}

const char* ProductState_GetCompilationOption() {
#ifdef NDEBUG
    return "release";
#else
    return "debug";
#endif
}
