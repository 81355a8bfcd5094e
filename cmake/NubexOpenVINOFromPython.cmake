# Without OpenVINO_DIR, OpenVINO's CMake package is taken from the openvino
# Python package of the Python found first (the pinned wheel in requirements.txt,
# or the build environment of a Python package build).
if(NOT OpenVINO_DIR AND NOT DEFINED ENV{OpenVINO_DIR})
  # The project's environment (scripts/setup.sh) first, then any Python found.
  if(NOT Python_EXECUTABLE AND EXISTS "${PROJECT_SOURCE_DIR}/.venv/bin/python")
    set(Python_EXECUTABLE "${PROJECT_SOURCE_DIR}/.venv/bin/python")
  endif()
  find_package(Python COMPONENTS Interpreter)
  if(Python_Interpreter_FOUND)
    execute_process(
      COMMAND "${Python_EXECUTABLE}" -c "import openvino.utils as u; print(u.get_cmake_path(), end='')"
      OUTPUT_VARIABLE _openvino_cmake_dir RESULT_VARIABLE _openvino_found ERROR_QUIET)
    if(_openvino_found EQUAL 0 AND IS_DIRECTORY "${_openvino_cmake_dir}")
      set(OpenVINO_DIR "${_openvino_cmake_dir}" CACHE PATH "OpenVINO's CMake package (from the openvino Python package)")
    endif()
  endif()
endif()
