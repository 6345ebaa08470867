# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0

# The manual page and the shells' completions, which the program itself prints.
if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  message(WARNING "No manual page and no completions: the program prints them, and cannot run here. "
    "Set CMAKE_CROSSCOMPILING_EMULATOR to have them.")
  return()
endif()
set(help_dir ${PROJECT_BINARY_DIR}/help)
file(MAKE_DIRECTORY ${help_dir})
set(help_files ${help_dir}/kvfob.1 ${help_dir}/kvfob ${help_dir}/_kvfob ${help_dir}/kvfob.fish)
add_custom_command(OUTPUT ${help_files}
  COMMAND kvfob manual > kvfob.1
  COMMAND kvfob completion bash > kvfob
  COMMAND kvfob completion zsh > _kvfob
  COMMAND kvfob completion fish > kvfob.fish
  DEPENDS kvfob WORKING_DIRECTORY ${help_dir} VERBATIM)
add_custom_target(kvfob_help ALL DEPENDS ${help_files})

install(FILES ${help_dir}/kvfob.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${help_dir}/kvfob DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${help_dir}/_kvfob DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(FILES ${help_dir}/kvfob.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
