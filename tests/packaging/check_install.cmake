# Installs the build into a fresh prefix, runs the installed zelk command, then builds
# the outside program of this directory against the installed files twice, with
# find_package(zelk) and with pkg-config, and runs both. Each must load the library by its SONAME and print its
# version.
#   cmake -DBUILD_DIR=... -DWORK_DIR=... -DCONSUMER_DIR=... -DC_COMPILER=... -DGENERATOR=...
#         -DEXPECTED_VERSION=5.1 -DEXPECTED_SONAME=libzelk.so.5 -P check_install.cmake
cmake_minimum_required(VERSION 3.16)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}${err}")
  endif()
  set(OUT "${out}" PARENT_SCOPE)
endfunction()

# The dynamic section entries of `kind` (SONAME, NEEDED) of a binary, as a list.
function(dynamic_entries file kind)
  run(objdump -p ${file})
  string(REGEX MATCHALL "${kind} +[^\n]+" lines "${OUT}")
  set(names "")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^${kind} +" "" name "${line}")
    list(APPEND names "${name}")
  endforeach()
  set(ENTRIES "${names}" PARENT_SCOPE)
endfunction()

function(expect_version program)
  run(${program})
  if(NOT OUT MATCHES "^${EXPECTED_VERSION} \\(")
    message(FATAL_ERROR "${program} printed \"${OUT}\", expected version ${EXPECTED_VERSION}")
  endif()
  dynamic_entries(${program} NEEDED)
  if(NOT EXPECTED_SONAME IN_LIST ENTRIES)
    message(FATAL_ERROR "${program} needs ${ENTRIES}, not ${EXPECTED_SONAME}")
  endif()
endfunction()

set(PREFIX ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})

foreach(file include/zelk.h bin/zelk)
  if(NOT EXISTS ${PREFIX}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()
run(${PREFIX}/bin/zelk --version)
if(NOT OUT MATCHES "^zelk ${EXPECTED_VERSION} \\(")
  message(FATAL_ERROR "the installed zelk printed \"${OUT}\", expected version ${EXPECTED_VERSION}")
endif()
file(GLOB_RECURSE libraries LIST_DIRECTORIES false ${PREFIX}/libzelk.so.*.*)
list(LENGTH libraries count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "expected one versioned library, found: ${libraries}")
endif()
dynamic_entries(${libraries} SONAME)
if(NOT ENTRIES STREQUAL EXPECTED_SONAME)
  message(FATAL_ERROR "SONAME of ${libraries} is \"${ENTRIES}\", expected ${EXPECTED_SONAME}")
endif()

# find_package, with the version that the build claims.
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/with-cmake -G ${GENERATOR}
    -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_PREFIX_PATH=${PREFIX} -DZELK_REQUIRED_VERSION=${EXPECTED_VERSION})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/with-cmake)
expect_version(${WORK_DIR}/with-cmake/zelk_consumer)

# pkg-config, which sees the installed file only.
file(GLOB_RECURSE pc_files ${PREFIX}/zelk.pc)
if(NOT pc_files)
  message(FATAL_ERROR "no zelk.pc installed")
endif()
get_filename_component(pc_dir ${pc_files} DIRECTORY)
set(pkg_config ${CMAKE_COMMAND} -E env PKG_CONFIG_LIBDIR=${pc_dir} PKG_CONFIG_PATH= pkg-config)
run(${pkg_config} --modversion zelk)
string(STRIP "${OUT}" version)
if(NOT version STREQUAL EXPECTED_VERSION)
  message(FATAL_ERROR "pkg-config gives version ${version}, expected ${EXPECTED_VERSION}")
endif()
run(${pkg_config} --cflags --libs zelk)
separate_arguments(flags UNIX_COMMAND "${OUT}")
run(${pkg_config} --variable=libdir zelk)
string(STRIP "${OUT}" libdir)
run(${C_COMPILER} ${CONSUMER_DIR}/consumer.c ${flags} -Wl,-rpath,${libdir} -o ${WORK_DIR}/with-pkg-config)
expect_version(${WORK_DIR}/with-pkg-config)
