# Fails when an object built for the SSE2 baseline holds AVX (VEX) code.
foreach(obj ${OBJECTS})
  execute_process(COMMAND objdump -d --no-show-raw-insn ${obj}
                  OUTPUT_VARIABLE dis RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "objdump failed on ${obj}")
  endif()
  string(REGEX MATCH "\tv[a-z0-9]+ +[^\n]*%[xy]mm" hit "${dis}")
  if(hit)
    message(FATAL_ERROR "${obj} holds VEX code: ${hit}")
  endif()
endforeach()
