// SPDX-License-Identifier: Apache-2.0
#pragma once

/// \file
/// What this program is, as the host's log wants to know it. All texts live for the whole run.

/// The product's name: "bootweave".
const char* ProductState_GetName();
/// The version, for example "0.1.0".
const char* ProductState_GetVersion();
/// The build number, "build-N".
const char* ProductState_GetBuildNumberString();
/// How it was compiled: "release" or "debug".
const char* ProductState_GetCompilationOption();
