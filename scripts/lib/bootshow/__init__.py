# SPDX-License-Identifier: Apache-2.0
"""Shows what happens on the demo's throw-away host.

stream.py   takes its output apart
console.py  the terminal on which it asks
run.py      what is learnt of one run of the program
show.py     the log in colours, and the summaries
"""
