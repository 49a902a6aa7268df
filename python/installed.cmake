# Installs the build into a scratch prefix and imports the installed package
# from there, with the build tree out of reach.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "install failed: ${rc}")
endif()
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env PYTHONPATH=${WORK_DIR}/prefix/${SITE} PYTHONDONTWRITEBYTECODE=1
          ${PYTHON} -c "import tundrel, os; p = tundrel.__file__; print(p); assert p.startswith(os.path.realpath('${WORK_DIR}'))"
  WORKING_DIRECTORY ${WORK_DIR}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
message(STATUS "${out}${err}")
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the installed package does not import: ${rc}")
endif()
