// SPDX-License-Identifier: Apache-2.0
// A unit of work that does nothing: what a run of many costs is the running of them. Serves as host command,
// as init script and as what a debug injection calls.
int main(void) {
    return 0;
}
