# SPDX-License-Identifier: Apache-2.0
"""The throw-away host: a machine of its own that ends with the command it was made for.

linux.py  the system calls that Python 3.11 has no wrapper for
trees.py  copying host trees in and results out
root.py   the file systems that such a host sees
guest.py  its first process: starts the command, reaps, collects
"""
