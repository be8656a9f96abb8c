# A dropped status does not compile. The snippet compiles with every status used, and fails to
# compile, for the dropped result, with each kind of call that drops one (a plain function, a
# virtual member, a lambda). Run with -DCOMPILER=... -DSOURCE_DIR=... -DSNIPPET=...
set(flags -std=c++20 -fsyntax-only -Wall -Wextra -Werror=unused-result -Werror
          -I${SOURCE_DIR}/src)

execute_process(COMMAND ${COMPILER} ${flags} ${SNIPPET}
                RESULT_VARIABLE result ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the snippet with every status used does not compile:\n${output}")
endif()

foreach(drop 1 2 3)
  execute_process(COMMAND ${COMPILER} ${flags} -DDROP=${drop} ${SNIPPET}
                  RESULT_VARIABLE result ERROR_VARIABLE output)
  if(result EQUAL 0)
    message(FATAL_ERROR "a dropped status compiles (DROP=${drop})")
  endif()
  if(NOT output MATCHES "unused-result")
    message(FATAL_ERROR "DROP=${drop} fails to compile for another reason:\n${output}")
  endif()
endforeach()
