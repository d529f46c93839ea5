# Installs the build into a temporary prefix, then configures, builds and runs
# the consumer project against it.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run_step)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  message("${out}${err}")
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "step failed (${rc}): ${ARGV}")
  endif()
endfunction()

run_step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run_step(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer -B ${WORK_DIR}/build
         -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix})
run_step(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
set(ENV{LD_LIBRARY_PATH} "${prefix}/lib:${prefix}/lib/x86_64-linux-gnu:$ENV{LD_LIBRARY_PATH}")
set(ENV{QT_QPA_PLATFORM} offscreen)
run_step(${WORK_DIR}/build/kelmor_consumer)
