#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Logs in at an iSCSI target.

. /usr/lib/corvane/sh/hostcli.sh

take_options "target portal" "$@"

try ip route get "${opt_portal%%:*}"
printf '%s %s\n' "$opt_target" "$opt_portal" | save_state "storage/iscsi"
