# cmake -P script run by the package_consumer test. Installs BUILD_DIR into a
# fresh prefix under WORK_DIR; then, from that prefix alone,
#   - consumer/ (find_package(DataStore)) builds, loads the installed module
#     and reads the module's name through GetModuleInfo;
#   - pkg-config gives the installed header's folder and the same module;
#   - the installed dshost finds the installed module by itself;
#   - the installed tools run.
set(kModuleName "VdMd.DataStore module")
set(prefix ${WORK_DIR}/prefix)

# Runs a command; fails unless it exits 0. Its standard output goes to `output`.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}${err}")
  endif()
  set(output "${out}" PARENT_SCOPE)
endfunction()

# Fails unless `text` matches `pattern`, whose group 1 must name the file `expected`.
function(expect_path text pattern expected)
  if(NOT text MATCHES "${pattern}")
    message(FATAL_ERROR "no ${pattern} in:\n${text}")
  endif()
  file(REAL_PATH "${CMAKE_MATCH_1}" actual)
  file(REAL_PATH "${expected}" expected)
  if(NOT actual STREQUAL expected)
    message(FATAL_ERROR "${pattern}: ${actual}, not ${expected}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
set(module ${prefix}/${MODULE})

run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer -G ${GENERATOR}
  -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${CXX_FLAGS} -DCMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${WORK_DIR}/consumer/consumer)
expect_path("${output}" "module ([^\n]+)" ${module})
if(NOT output MATCHES "name ${kModuleName}\n")
  message(FATAL_ERROR "the consumer did not read the module's name:\n${output}")
endif()

cmake_path(GET MODULE PARENT_PATH libdir)
set(pkg_config ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/${libdir}/pkgconfig ${PKG_CONFIG})
run(${pkg_config} --cflags datastore)
expect_path("${output}" "-I([^ \n]+)" ${prefix}/${INCLUDEDIR})
run(${pkg_config} --variable=module datastore)
expect_path("${output}" "([^\n]+)" ${module})

run(${CMAKE_COMMAND} -E env --unset=DATASTORE_MODULE ${prefix}/bin/dshost info)
expect_path("${output}" "Module file +([^\n]+)" ${module})
foreach(tool cjd export_generator)
  run(${prefix}/bin/${tool} --help)
endforeach()
