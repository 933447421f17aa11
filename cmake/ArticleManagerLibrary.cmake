# Defines one shared library of the project: versioned SONAME, hidden symbols, installed with
# its public headers into the package. Every library's headers go into one folder named after
# the project, so that a consumer writes <ArticleManager/Logger.h> and names as general as
# Logger.h never reach its include path.
#   articlemanager_add_library(<target> OUTPUT_NAME <name> SOURCES ... HEADERS ...
#                              [PUBLIC_LINK ...] [PRIVATE_LINK ...])
function(articlemanager_add_library target)
    cmake_parse_arguments(ARG "" "OUTPUT_NAME" "SOURCES;HEADERS;PUBLIC_LINK;PRIVATE_LINK" ${ARGN})
    add_library(${target} SHARED ${ARG_SOURCES} ${ARG_HEADERS})
    add_library(ArticleManager::${target} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME ${ARG_OUTPUT_NAME}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
        EXPORT_NAME ${target})
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_link_libraries(${target} PUBLIC ${ARG_PUBLIC_LINK} PRIVATE ${ARG_PRIVATE_LINK})
    # No undefined symbols may be left for the loader to find elsewhere (sanitizer runtimes
    # resolve theirs from the executable).
    if(NOT ARTICLEMANAGER_SANITIZE)
        target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
    install(TARGETS ${target} EXPORT ArticleManagerTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
    install(FILES ${ARG_HEADERS} DESTINATION ${ARTICLEMANAGER_INCLUDE_INSTALL_DIR}
        COMPONENT dev)
endfunction()
