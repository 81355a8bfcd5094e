# Where an install puts things, and the run paths that tie them together.
#
#   bin/                         nubex-scan, nubex-pack
#   lib/libNubexEngine.so*       the engine
#   lib/res -> ../share/nubex/res   the engine's default resource directory
#                                ("res/" beside the library)
#   lib/nubex/openvino/          the OpenVINO runtime the engine runs on (CPU
#                                plug-in, IR reader, TBB), copied from the
#                                OpenVINO it was built against
#   lib/cmake/NubexEngine/       find_package(NubexEngine)
#   lib/pkgconfig/nubex-engine.pc
#   include/nubex_engine.h
#   share/nubex/res/             the default resource pack
#   share/doc/NubexEngine/       notices and licences
#
# Every run path is relative ($ORIGIN), so the installed tree can be moved.
include(GNUInstallDirs)

option(NUBEX_INSTALL_OPENVINO
  "Install the OpenVINO runtime the engine was built against beside it (off: rely on the system's)" ON)
option(NUBEX_INSTALL_DEFAULT_PACK "Install the default resource pack" ON)
set(NUBEX_DEFAULT_PACK_DIR "${PROJECT_BINARY_DIR}/res" CACHE PATH
  "The default resource pack that an install carries (links are followed)")

set(NUBEX_INSTALL_OPENVINO_DIR "${CMAKE_INSTALL_LIBDIR}/nubex/openvino")
set(NUBEX_INSTALL_PACK_DIR "${CMAKE_INSTALL_DATADIR}/nubex/res" CACHE STRING
  "Where the default pack is installed, relative to the prefix; ${CMAKE_INSTALL_LIBDIR}/res links to it unless it is that folder")
set(NUBEX_INSTALL_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/NubexEngine")
set(NUBEX_INSTALL_DOC_DIR "${CMAKE_INSTALL_DATADIR}/doc/NubexEngine")

foreach(dir IN ITEMS CMAKE_INSTALL_BINDIR CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_DATADIR CMAKE_INSTALL_INCLUDEDIR)
  if(IS_ABSOLUTE "${${dir}}")
    message(FATAL_ERROR "${dir} must be relative to the prefix, so that the install can move")
  endif()
endforeach()

# Relative path from one install folder to another (both relative to the prefix).
function(nubex_relative_path out from to)
  file(RELATIVE_PATH relative "/prefix/${from}" "/prefix/${to}")
  if(relative STREQUAL "")
    set(relative ".")
  endif()
  set(${out} "${relative}" PARENT_SCOPE)
endfunction()

# Where the installed library finds OpenVINO, relative to its own folder: the
# copy installed beside it, or (NUBEX_OPENVINO_RUNPATH) an OpenVINO that sits
# at a fixed place relative to the install, as the openvino wheel does beside
# the Python package.
set(NUBEX_OPENVINO_RUNPATH "" CACHE STRING
  "With NUBEX_INSTALL_OPENVINO off: the OpenVINO runtime's folder relative to the installed library's")
nubex_relative_path(_bin_to_lib "${CMAKE_INSTALL_BINDIR}" "${CMAKE_INSTALL_LIBDIR}")
if(NUBEX_INSTALL_OPENVINO)
  nubex_relative_path(_lib_to_openvino "${CMAKE_INSTALL_LIBDIR}" "${NUBEX_INSTALL_OPENVINO_DIR}")
elseif(NUBEX_OPENVINO_RUNPATH)
  set(_lib_to_openvino "${NUBEX_OPENVINO_RUNPATH}")
else()
  # The system's OpenVINO: installed programs keep finding it where they were linked.
  set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)
  set(_lib_to_openvino "")
endif()
if(_lib_to_openvino)
  set(NUBEX_LIBRARY_INSTALL_RPATH "$ORIGIN/${_lib_to_openvino}")
  set(NUBEX_TOOLS_INSTALL_RPATH "$ORIGIN/${_bin_to_lib};$ORIGIN/${_bin_to_lib}/${_lib_to_openvino}")
else()
  set(NUBEX_LIBRARY_INSTALL_RPATH "")
  set(NUBEX_TOOLS_INSTALL_RPATH "$ORIGIN/${_bin_to_lib}")
endif()
