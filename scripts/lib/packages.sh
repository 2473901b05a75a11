# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2034
#
# The Debian packages that the scripts need, and installing what is missing of them.

# To build the program.
PACKAGES_LIBRARIES=(
    libboost1.81-dev libboost-filesystem1.81-dev libboost-iostreams1.81-dev libboost-json1.81-dev
    libboost-regex1.81-dev zlib1g-dev
    libgmock-dev libgtest-dev
)
PACKAGES_BUILD=(cmake g++ ninja-build "${PACKAGES_LIBRARIES[@]}")

# To boot the sample host on a throw-away host. Of the small syslog daemons, busybox's comes as a program
# alone: the others' packages bring a service that would start here and push this machine's log daemon out.
PACKAGES_HOST=(busybox e2fsprogs iproute2 mount python3 strace util-linux)

# What authors of plugins use, as the system tests do: to build native ones outside the tree with what is
# installed, and to check JSON ones.
PACKAGES_PLUGINS=(g++ gcc make pkgconf python3-jsonschema)

# To check sources, scripts and documents; the versions are those that the checks ask for by name.
PACKAGES_CHECKS=(clang-14 clang-format-14 clang-tidy-14 clangd-14 git man-db python3 shellcheck)

# To build the Debian packages, and to look at what came of it.
PACKAGES_PACKAGE=(
    cmake debhelper dpkg-dev g++ git ninja-build
    libboost1.81-dev libboost-json1.81-dev zlib1g-dev
)
PACKAGES_PACKAGE_TEST=(lintian)

# To make a Debian tree with daemons, and to see its boot splash.
PACKAGES_DAEMONS=(mmdebstrap)
PACKAGES_DAEMONS_SPLASH=(plymouth)

# To boot virtual machines; what is in them, beside a kernel; what some have in addition, to be run by
# systemd; what a kernel asks for that they do without.
PACKAGES_VM=(cpio e2fsprogs kmod python3 qemu-system-arm qemu-system-x86 rsync)
PACKAGES_VM_GUEST=(busybox-static dash dpkg e2fsprogs iproute2 libstdc++6)
PACKAGES_VM_MANAGED=(systemd systemd-sysv udev)
PACKAGES_VM_WITHOUT=(debconf initramfs-tools kmod linux-base)

# To fuzz.
PACKAGES_FUZZ=(clang-14 libclang-rt-14-dev)

# To measure: the libraries of the benchmarks, and programs to compare with.
PACKAGES_BENCH=(libbenchmark-dev libtbb-dev make ninja-build startpar)

# To draw the pictures of the documents, and to look at pictures in tests.
PACKAGES_PICTURES=(chromium graphviz)

# To report what tests have run.
PACKAGES_COVERAGE=(gcovr python3)

# To build for 64-bit Arm on a processor of another kind, and to run the tests there. On kernels before Linux
# 6.7, as Debian 12 has one, only the whole machine can have an interpreter of such programs; the last one
# brings it. What scripts/lib/arm64-sysroot loads is not installed.
PACKAGES_ARM64=(g++-aarch64-linux-gnu qemu-user)
PACKAGES_ARM64_INTERPRETER=(qemu-user-binfmt)
PACKAGES_ARM64_SYSROOT=(libc6 libstdc++6 "${PACKAGES_LIBRARIES[@]}")

# need_packages PACKAGE...: returns when all are installed. As root, or with a sudo that asks nothing or can
# ask, installs the missing ones; otherwise prints the one line that does, and ends the script.
need_packages() {
    local package missing=()
    for package in "$@"; do
        if [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            missing+=("$package")
        fi
    done
    if ((${#missing[@]} == 0)); then
        return
    fi
    local as_root=()
    if ((EUID != 0)); then
        if command -v sudo >/dev/null && { [[ -t 0 ]] || sudo -n true 2>/dev/null; }; then
            as_root=(sudo)
        else
            printf 'Packages are missing. As root, run this once:\n\n    %s %s\n\n' \
                'apt-get install --no-install-recommends' "${missing[*]}" >&2
            exit 1
        fi
    fi
    printf 'Installing %s\n' "${missing[*]}" >&2
    local install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive
        apt-get install --yes --quiet=2 --no-install-recommends -o DPkg::Lock::Timeout=300 "${missing[@]}")
    # A fresh machine may have no package lists yet, or old ones.
    if ! "${install[@]}" >/dev/null 2>&1; then
        "${as_root[@]}" apt-get update --quiet=2
        "${install[@]}" >/dev/null
    fi
}
