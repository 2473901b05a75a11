// SPDX-License-Identifier: Apache-2.0
#include "plugins/native_reader/metadata_server.h"

int main() {
    return bootweave::RunNativeReader();
}
