# What the project installs besides its targets, and the Debian packages cpack makes of it:
#   libarticlemanager1      the five shared libraries (component runtime)
#   libarticlemanager-dev   headers, the CMake package, the pkg-config file (component dev)
#   articlectl              the tool, its man page and bash completion (component tool)

# ---- CMake package: a consumer's compile needs Qt 5 Core and nothing else (SQLite stays
# inside the database library). ------------------------------------------------------------------
include(CMakePackageConfigHelpers)
set(cmakeDir ${CMAKE_INSTALL_LIBDIR}/cmake/ArticleManager)
configure_package_config_file(cmake/ArticleManagerConfig.cmake.in
    ${PROJECT_BINARY_DIR}/ArticleManagerConfig.cmake INSTALL_DESTINATION ${cmakeDir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ArticleManagerConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(EXPORT ArticleManagerTargets NAMESPACE ArticleManager:: DESTINATION ${cmakeDir}
    COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/ArticleManagerConfig.cmake
              ${PROJECT_BINARY_DIR}/ArticleManagerConfigVersion.cmake
    DESTINATION ${cmakeDir} COMPONENT dev)

file(RELATIVE_PATH pcPrefix ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig
    ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pcPrefix "${pcPrefix}")
configure_file(packaging/articlemanager.pc.in ${PROJECT_BINARY_DIR}/articlemanager.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/articlemanager.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# ---- The tool's manual and completion ---------------------------------------------------------
find_program(GZIP gzip REQUIRED)
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/articlectl.1.gz
    COMMAND ${GZIP} -9n -c ${PROJECT_SOURCE_DIR}/packaging/articlectl.1
            > ${PROJECT_BINARY_DIR}/articlectl.1.gz
    DEPENDS packaging/articlectl.1 VERBATIM)
add_custom_target(articlectl_manual ALL DEPENDS ${PROJECT_BINARY_DIR}/articlectl.1.gz)
install(FILES ${PROJECT_BINARY_DIR}/articlectl.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT tool)
install(FILES packaging/articlectl.bash-completion
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME articlectl
    COMPONENT tool)

# ---- Debian packages ---------------------------------------------------------------------------
set(runtimePackage libarticlemanager1)
set(devPackage libarticlemanager-dev)
set(toolPackage articlectl)
foreach(component runtime dev tool)
    install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${${component}Package}
        RENAME copyright COMPONENT ${component})
endforeach()
install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${runtimePackage}
    COMPONENT runtime)

# The Debian package of each library the packaged programs load, by SONAME, with the oldest
# version that has every symbol they use (dpkg-shlibdeps's answer on amd64; the armhf sysroot
# has no package database to ask). scripts/package.sh checks every NEEDED entry against it.
set(ARTICLEMANAGER_DEB_SHLIBS
    "libc.so.6=libc6 (>= 2.34)"
    "libm.so.6=libc6 (>= 2.34)"
    "libgcc_s.so.1=libgcc-s1 (>= 3.0)"
    "libstdc++.so.6=libstdc++6 (>= 11)"
    "libQt5Core.so.5=libqt5core5a (>= 5.15.1)"
    "libsqlite3.so.0=libsqlite3-0 (>= 3.37.0)")
set(systemDepends "")
set(shlibsTable "")
foreach(entry ${ARTICLEMANAGER_DEB_SHLIBS})
    string(FIND "${entry}" "=" equals)
    string(SUBSTRING "${entry}" 0 ${equals} soname)
    math(EXPR equals "${equals} + 1")
    string(SUBSTRING "${entry}" ${equals} -1 package)
    string(APPEND shlibsTable "${soname} ${package}\n")
    if(NOT package IN_LIST systemDepends)
        list(APPEND systemDepends "${package}")
    endif()
endforeach()
file(WRITE ${PROJECT_BINARY_DIR}/deb-shlibs.txt "${shlibsTable}")
list(JOIN systemDepends ", " systemDepends)

# The architecture the compiler builds for, in Debian's words (not the build machine's).
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
    set(debArch amd64)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    set(debArch arm64)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    set(debArch armhf)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^i.86$")
    set(debArch i386)
else()
    set(debArch ${CMAKE_SYSTEM_PROCESSOR})
endif()

set(CPACK_PACKAGE_NAME libarticlemanager)
set(CPACK_PACKAGE_VENDOR "The libArticleManager developers")
set(CPACK_PACKAGE_CONTACT "The libArticleManager developers <articlemanager@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package's description starts with its own summary line.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tool)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${debArch})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtimePackage})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${systemDepends}")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "article database library of a fiscal cash register
libArticleManager keeps a cash register's catalogue in SQLite: articles sold under PLU
numbers, their barcodes, departments, tax rates and the barcode prefixes of weighed and
priced goods. This package holds the library and the four platform libraries it loads
(database access, core, signals, payment).")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${devPackage})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${runtimePackage} (= ${PROJECT_VERSION}), qtbase5-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION
    "article database library of a fiscal cash register - development files
Headers (in include/ArticleManager), the CMake package (find_package(ArticleManager)) and the
pkg-config file (articlemanager) for building programs against libArticleManager.")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ${toolPackage})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${runtimePackage} (= ${PROJECT_VERSION}), ${systemDepends}")
set(CPACK_DEBIAN_TOOL_DESCRIPTION
    "prepares and services a cash register's article catalogue
articlectl works on a register's article database through libArticleManager: adds and edits
articles, scans codes as the register does, searches, imports and exports price lists,
checks, backs up and restores the catalogue.")
include(CPack)
