# The Debian package: `cpack -G DEB` in the build folder after a release
# build. It carries everything `cmake --install` installs: the programs, the
# tools folder (the own curl with its libcurl, the link to git) and the
# desktop entry with its icon.
set(CPACK_PACKAGE_NAME tarnwell)
set(CPACK_PACKAGE_VENDOR "Tarnwell")
set(CPACK_PACKAGE_CONTACT "Tarnwell developers <dev@tarnwell.dev>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_INSTALL_DIRECTORY tarnwell)
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION web)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://tarnwell.dev")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Publishes a website kept in a local git repository to a web server over FTP, FTP with TLS\n\
or SFTP. Only the files changed since the last deployment are sent; scripts can run\n\
before and after a deployment, locally or on the server over SSH.")
# Qt and the other libraries the programs link are found by dpkg-shlibdeps;
# git, the secret store and ssh are what the programs run; the own curl and
# its libcurl come with the package (their libraries are found by shlibdeps).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "git, libsecret-1-0, openssh-client")
# The own curl's libcurl lives in the tools folder, not in a system path.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${TARNWELL_CURL_ROOT}/usr/lib/x86_64-linux-gnu"
    "${TARNWELL_LIBSSH2_ROOT}/usr/lib/x86_64-linux-gnu")
include(CPack)
