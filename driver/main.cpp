// SPDX-License-Identifier: Apache-2.0
#include "driver/driver.h"

int main(int argc, char** argv) {
    return bootweave::RunBootweave(argc, argv);
}
