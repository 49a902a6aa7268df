# Builds README's C++ example as a user does: installs the build into a
# scratch prefix, builds the example's code with the example's CMake project
# (which sets no language standard), runs it, then moves the installed tree
# elsewhere and builds the same code with the README's pkg-config line.
#   -DBUILD_DIR -DREADME -DDATA (tests/data) -DWORK_DIR -DGENERATOR

cmake_minimum_required(VERSION 3.22)

function(check rc what)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed: ${rc}")
  endif()
endfunction()

# The body of the first ```<lang> block of `text`.
function(fenced text lang out)
  string(FIND "${text}" "```${lang}\n" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "README's C++ section has no ${lang} block")
  endif()
  string(LENGTH "```${lang}\n" open)
  math(EXPR at "${at} + ${open}")
  string(SUBSTRING "${text}" ${at} -1 rest)
  string(FIND "${rest}" "```" end)
  string(SUBSTRING "${rest}" 0 ${end} body)
  set(${out} "${body}" PARENT_SCOPE)
endfunction()

file(READ ${README} readme)
string(FIND "${readme}" "## The C++ API" at)
string(SUBSTRING "${readme}" ${at} -1 section)
string(FIND "${section}" "\n## " end)
string(SUBSTRING "${section}" 0 ${end} section)
fenced("${section}" cpp code)
fenced("${section}" cmake project)
fenced("${section}" sh shell)

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} RESULT_VARIABLE rc OUTPUT_QUIET)
check("${rc}" "install")

# The installed headers stand alone: no third-party header, nothing internal.
file(GLOB_RECURSE headers RELATIVE ${prefix}/include/tundrel ${prefix}/include/tundrel/*)
if(NOT "api/TundrelApi.h" IN_LIST headers)
  message(FATAL_ERROR "the umbrella header is not installed")
endif()
foreach(h ${headers})
  if(h MATCHES "detail/" OR NOT h MATCHES "\\.h$")
    message(FATAL_ERROR "installed, but not public: ${h}")
  endif()
  file(STRINGS ${prefix}/include/tundrel/${h} bad REGEX "#[ \t]*include[ \t]*<(xercesc|embree|Eigen|omp)")
  if(bad)
    message(FATAL_ERROR "${h} includes a dependency's header: ${bad}")
  endif()
endforeach()

set(app ${WORK_DIR}/app)
file(WRITE ${app}/main.cpp "${code}")
file(WRITE ${app}/CMakeLists.txt "${project}")
# The example reads tests/data/wing.apt relative to where it runs.
file(COPY ${DATA}/wing.apt DESTINATION ${WORK_DIR}/run/tests/data)

# Runs `program` in the run directory; it must print one "I x J" line per
# patch and write its copy.
function(run_example program env)
  file(REMOVE ${WORK_DIR}/run/wing_copy.apt)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env ${env} ${program} WORKING_DIRECTORY ${WORK_DIR}/run
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message(STATUS "${program}: ${out}${err}")
  check("${rc}" "running ${program}")
  if(NOT out MATCHES "^([0-9]+ x [0-9]+\n)+$" OR NOT EXISTS ${WORK_DIR}/run/wing_copy.apt)
    message(FATAL_ERROR "the example did not read and write the model")
  endif()
endfunction()

# CMake: the project as README gives it, nothing added.
execute_process(COMMAND ${CMAKE_COMMAND} -S ${app} -B ${app}/cmake-build -G ${GENERATOR}
                -DCMAKE_PREFIX_PATH=${prefix} RESULT_VARIABLE rc)
check("${rc}" "configuring README's CMake project")
execute_process(COMMAND ${CMAKE_COMMAND} --build ${app}/cmake-build RESULT_VARIABLE rc)
check("${rc}" "building README's CMake project")
run_example(${app}/cmake-build/myapp "")

# The Qt host, where it was built: README's lines for desktop applications in
# a small program that links the installed TundrelApi::TundrelQt and runs.
file(GLOB qt_targets ${prefix}/*/cmake/TundrelApi/TundrelQtTargets.cmake)
if(qt_targets)
  string(FIND "${readme}" "## Desktop applications (Qt)" at)
  string(SUBSTRING "${readme}" ${at} -1 qt_section)
  fenced("${qt_section}" cmake qt_link)
  fenced("${qt_section}" cpp qt_code)
  # Its #include lines go on top, the rest into main.
  string(REGEX MATCHALL "#include[^\n]*\n" qt_includes "${qt_code}")
  string(REPLACE ";" "" qt_includes "${qt_includes}")
  string(REGEX REPLACE "#include[^\n]*\n" "" qt_code "${qt_code}")
  set(qt_app ${WORK_DIR}/qt_app)
  file(WRITE ${qt_app}/CMakeLists.txt
       "cmake_minimum_required(VERSION 3.22)\nproject(qtapp CXX)\nadd_executable(myapp main.cpp)\n${qt_link}")
  # Whatever the library opens is cancelled, as a user would.
  file(WRITE ${qt_app}/main.cpp "#include <QApplication>\n#include <QDialog>\n#include <QMainWindow>\n"
       "#include <QTimer>\n#include <cstdio>\n#include <api/TundrelApi.h>\n${qt_includes}"
       "int main(int argc, char** argv) {\n  QApplication application(argc, argv);\n  QMainWindow mainWindow;\n"
       "  QTimer cancel;\n  QObject::connect(&cancel, &QTimer::timeout, [] {\n"
       "    if (auto* d = qobject_cast<QDialog*>(QApplication::activeModalWidget())) {\n"
       "      std::printf(\"%s\\n\", qPrintable(d->windowTitle()));\n      d->reject();\n    }\n  });\n"
       "  cancel.start(50);\n  FieldMasterD field;\n  std::string fieldName = \"cp\";\n  try {\n${qt_code}"
       "  } catch (...) {\n    std::puts(\"refused\");\n  }\n}\n")
  execute_process(COMMAND ${CMAKE_COMMAND} -S ${qt_app} -B ${qt_app}/build -G ${GENERATOR}
                  -DCMAKE_PREFIX_PATH=${prefix} RESULT_VARIABLE rc)
  check("${rc}" "configuring README's Qt project")
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${qt_app}/build RESULT_VARIABLE rc)
  check("${rc}" "building README's Qt project")
  execute_process(COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen ${qt_app}/build/myapp
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  check("${rc}" "running README's Qt program: ${err}")
  if(NOT out MATCHES "^Self-illumination parameters\n")
    message(FATAL_ERROR "README's Qt program: ${out}${err}")
  endif()
endif()

# pkg-config, after moving the installed tree: the .pc file must find it
# from its own place.
set(moved ${WORK_DIR}/moved)
file(RENAME ${prefix} ${moved})
file(GLOB_RECURSE pc ${moved}/*/tundrel.pc)
list(LENGTH pc n)
if(NOT n EQUAL 1)
  message(FATAL_ERROR "expected one installed tundrel.pc, found: ${pc}")
endif()
get_filename_component(pcdir ${pc} DIRECTORY)
get_filename_component(libdir ${pcdir} DIRECTORY)
string(STRIP "${shell}" shell)
execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pcdir} sh -c "${shell}"
                WORKING_DIRECTORY ${app} RESULT_VARIABLE rc)
check("${rc}" "README's pkg-config build")
run_example(${app}/myapp "LD_LIBRARY_PATH=${libdir}")
