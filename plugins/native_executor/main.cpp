// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_executor/native_executor.h"

int main(int argc, char** argv) {
    return bootweave::RunNativeExecutor(argc, argv);
}
