# The application's own tools folder, libexec/tarnwell next to bin/: git is a
# link to the system's git, curl is the unpacked curl 8.14 with its libcurl in
# lib/ (the transfer engine points the library path there), and beside it
# libssh2 1.11, which signs with rsa-sha2 (Debian 12's 1.10 cannot, so RSA
# keys fail against current OpenSSH). Programs never take git or curl from
# the search path.
set(TARNWELL_TOOLS_DIR ${CMAKE_BINARY_DIR}/libexec/tarnwell)
set(TARNWELL_LIBSSH2_ROOT "${PROJECT_SOURCE_DIR}/.cache/libssh2/root" CACHE PATH
    "Unpacked libssh2 1.11 that goes beside the own libcurl")
set(_curl_bin ${TARNWELL_CURL_ROOT}/usr/bin/curl)
file(GLOB _curl_libs ${TARNWELL_CURL_ROOT}/usr/lib/x86_64-linux-gnu/libcurl.so*
                     ${TARNWELL_LIBSSH2_ROOT}/usr/lib/x86_64-linux-gnu/libssh2.so*)
if (NOT EXISTS ${_curl_bin} OR NOT _curl_libs OR NOT EXISTS ${TARNWELL_LIBSSH2_ROOT}/usr/lib/x86_64-linux-gnu)
    message(FATAL_ERROR "The application's own curl or libssh2 is missing in ${TARNWELL_CURL_ROOT} or "
                        "${TARNWELL_LIBSSH2_ROOT}. Run scripts/setup.sh (make does it for you).")
endif ()
find_program(TARNWELL_SYSTEM_GIT git PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)

add_custom_command(
    OUTPUT ${TARNWELL_TOOLS_DIR}/curl ${TARNWELL_TOOLS_DIR}/git
    COMMAND ${CMAKE_COMMAND} -E make_directory ${TARNWELL_TOOLS_DIR}/lib
    COMMAND ${CMAKE_COMMAND} -E copy ${_curl_bin} ${TARNWELL_TOOLS_DIR}/curl
    COMMAND ${CMAKE_COMMAND} -E copy ${_curl_libs} ${TARNWELL_TOOLS_DIR}/lib/
    COMMAND ${CMAKE_COMMAND} -E create_symlink ${TARNWELL_SYSTEM_GIT} ${TARNWELL_TOOLS_DIR}/git
    DEPENDS ${_curl_bin} ${_curl_libs}
    COMMENT "Filling the tools folder ${TARNWELL_TOOLS_DIR}")
add_custom_target(tarnwell_tools ALL DEPENDS ${TARNWELL_TOOLS_DIR}/curl ${TARNWELL_TOOLS_DIR}/git)

install(PROGRAMS ${_curl_bin} DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/tarnwell)
install(FILES ${_curl_libs} DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/tarnwell/lib)
install(CODE "file(CREATE_LINK ${TARNWELL_SYSTEM_GIT}
    \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBEXECDIR}/tarnwell/git SYMBOLIC)")
