# Install rules of the engine (the layout is described in NubexInstallLayout.cmake).
include(CMakePackageConfigHelpers)

# The library, exported for find_package(NubexEngine).
install(TARGETS NubexEngine EXPORT NubexEngineTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/nubex_engine.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# The OpenVINO runtime beside the library: only what a CPU scan of IR networks
# needs. OpenVINO finds its plug-ins and frontends beside its own library, and
# each of these libraries finds the others through its own "$ORIGIN" run path.
if(NUBEX_INSTALL_OPENVINO)
  set(_openvino_library "")
  foreach(config IN ITEMS RELEASE RELWITHDEBINFO NONE DEBUG)
    get_target_property(_location openvino::runtime IMPORTED_LOCATION_${config})
    if(_location)
      set(_openvino_library "${_location}")
      break()
    endif()
  endforeach()
  if(NOT _openvino_library)
    get_target_property(_openvino_library openvino::runtime IMPORTED_LOCATION)
  endif()
  if(NOT _openvino_library)
    message(FATAL_ERROR "Cannot tell where the OpenVINO runtime library is; "
                        "configure with -DNUBEX_INSTALL_OPENVINO=OFF to rely on the system's")
  endif()
  get_filename_component(_openvino_libs "${_openvino_library}" DIRECTORY)
  set(_openvino_runtime "")
  foreach(pattern IN ITEMS libopenvino.so* libopenvino_intel_cpu_plugin.so libopenvino_ir_frontend.so*
                           libtbb.so* libtbbbind_2_5.so* libhwloc.so* plugins.xml)
    file(GLOB _found "${_openvino_libs}/${pattern}")
    list(APPEND _openvino_runtime ${_found})
  endforeach()
  foreach(required IN ITEMS libopenvino.so libopenvino_intel_cpu_plugin.so libopenvino_ir_frontend.so libtbb.so)
    if(NOT _openvino_runtime MATCHES "/${required}")
      message(FATAL_ERROR "${required} is missing from ${_openvino_libs}")
    endif()
  endforeach()
  install(FILES ${_openvino_runtime} DESTINATION ${NUBEX_INSTALL_OPENVINO_DIR})

  # The wheel's licence texts and third-party notices.
  get_filename_component(_site_packages "${_openvino_libs}/../.." ABSOLUTE)
  file(GLOB _openvino_licences "${_site_packages}/openvino-*.dist-info/licenses")
  if(_openvino_licences)
    install(DIRECTORY ${_openvino_licences}/ DESTINATION ${NUBEX_INSTALL_DOC_DIR}/openvino)
  else()
    message(WARNING "No OpenVINO licence files found beside ${_openvino_libs}: the install will lack them")
  endif()
endif()

# The default resource pack, copied from the pack the build uses (a link to the
# shared cache: the files it points to are copied), and "res" beside the
# library pointing at it, which is where the engine looks by default. Without
# the pack the folder is left empty, ready for packs dropped into it.
nubex_relative_path(_lib_to_pack "${CMAKE_INSTALL_LIBDIR}" "${NUBEX_INSTALL_PACK_DIR}")
if(NUBEX_INSTALL_DEFAULT_PACK)
  set(_pack_source "${NUBEX_DEFAULT_PACK_DIR}")
else()
  set(_pack_source "")
endif()
install(CODE "
  set(pack \"${_pack_source}\")
  set(target \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${NUBEX_INSTALL_PACK_DIR}\")
  file(REMOVE_RECURSE \"\${target}\")
  if(pack)
    if(NOT IS_DIRECTORY \"\${pack}\")
      message(FATAL_ERROR \"No default resource pack at \${pack}: run scripts/setup.sh first, set \"
                          \"NUBEX_DEFAULT_PACK_DIR, or configure with -DNUBEX_INSTALL_DEFAULT_PACK=OFF\")
    endif()
    file(REAL_PATH \"\${pack}\" pack)
    file(INSTALL \"\${pack}/\" DESTINATION \"\${target}\" PATTERN .pack-fingerprint EXCLUDE)
  else()
    file(WRITE \"\${target}/README.txt\"
      \"Resource folders placed here are found by the engine: this is its default resource directory.\\n\")
  endif()
  if(NOT \"${NUBEX_INSTALL_PACK_DIR}\" STREQUAL \"${CMAKE_INSTALL_LIBDIR}/res\")
    set(link \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/res\")
    message(STATUS \"Installing: \${link} -> ${_lib_to_pack}\")
    file(REMOVE \"\${link}\")
    file(CREATE_LINK \"${_lib_to_pack}\" \"\${link}\" SYMBOLIC)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${link}\")
  endif()
")

# find_package(NubexEngine): the imported target NubexEngine::NubexEngine.
install(EXPORT NubexEngineTargets NAMESPACE NubexEngine:: DESTINATION ${NUBEX_INSTALL_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/NubexEngineConfig.cmake.in
  ${PROJECT_BINARY_DIR}/NubexEngineConfig.cmake
  INSTALL_DESTINATION ${NUBEX_INSTALL_CMAKE_DIR}
  PATH_VARS NUBEX_INSTALL_PACK_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NubexEngineConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/NubexEngineConfig.cmake ${PROJECT_BINARY_DIR}/NubexEngineConfigVersion.cmake
  DESTINATION ${NUBEX_INSTALL_CMAKE_DIR})

# pkg-config: nubex-engine.pc, its paths relative to its own folder.
nubex_relative_path(NUBEX_PC_TO_PREFIX "${CMAKE_INSTALL_LIBDIR}/pkgconfig" "")
configure_file(${CMAKE_CURRENT_LIST_DIR}/nubex-engine.pc.in ${PROJECT_BINARY_DIR}/nubex-engine.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/nubex-engine.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Notices: what the install carries and under which licences.
file(RELATIVE_PATH NUBEX_INSTALL_OPENVINO_SUBDIR "/${CMAKE_INSTALL_LIBDIR}" "/${NUBEX_INSTALL_OPENVINO_DIR}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/NOTICE.in ${PROJECT_BINARY_DIR}/NOTICE @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/NOTICE DESTINATION ${NUBEX_INSTALL_DOC_DIR})
