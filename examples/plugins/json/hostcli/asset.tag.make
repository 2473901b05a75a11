#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Makes up the host's asset tag: --digits=N

for word in "$@"; do
    case $word in
    --digits=*) digits=${word#*=} ;;
    *)
        echo "unknown option $word" >&2
        exit 2
        ;;
    esac
done
tr -dc 0-9 </dev/urandom | head -c "${digits:?is missing}" >/var/lib/corvane/asset-tag
