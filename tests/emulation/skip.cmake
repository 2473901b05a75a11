# SPDX-License-Identifier: Apache-2.0
# Read by ctest, not by cmake.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/skipped.txt lines)
foreach(line IN LISTS lines)
  if(line MATCHES "^    (.+)$")
    set_tests_properties("${CMAKE_MATCH_1}" PROPERTIES DISABLED TRUE)
  endif()
endforeach()
