# SPDX-License-Identifier: Apache-2.0
# The documents, laid out as in the source tree so that their links to each other hold, with the examples
# that they lead to.
set(documents README.md ARCHITECTURE.md CHANGELOG.md CONTRIBUTING.md LICENSE)
list(TRANSFORM documents PREPEND ${PROJECT_SOURCE_DIR}/)
install(FILES ${documents} DESTINATION ${CMAKE_INSTALL_DOCDIR})
# What a checkout's owner lets others write, an installed file does not.
set(file_permissions OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(program_permissions ${file_permissions} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR}
  FILE_PERMISSIONS ${file_permissions}
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.svg")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR}
  FILE_PERMISSIONS ${file_permissions}
  REGEX "/examples/plugins/.*\\.(o|so)$" EXCLUDE
  PATTERN ".*" EXCLUDE
  REGEX "/(init\\.d|init-script|configstore|hostcli|ext|int|bin|sbin)/[^/]*$|/host/setup$"
  PERMISSIONS ${program_permissions})
