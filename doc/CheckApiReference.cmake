# cmake -DDOXYGEN=doxygen -DDOXYFILE=Doxyfile -DSCRATCH=dir -P CheckApiReference.cmake:
# runs doxygen over the API reference's configuration into SCRATCH (removed
# afterwards) and fails on any warning.
file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${SCRATCH})
file(READ ${DOXYFILE} config)
string(APPEND config "\nOUTPUT_DIRECTORY = ${SCRATCH}\nWARN_LOGFILE = ${SCRATCH}/warnings.txt\n")
file(WRITE ${SCRATCH}/Doxyfile "${config}")
execute_process(COMMAND ${DOXYGEN} ${SCRATCH}/Doxyfile RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE errors)
file(READ ${SCRATCH}/warnings.txt warnings)
file(REMOVE_RECURSE ${SCRATCH})
if(NOT status EQUAL 0 OR NOT warnings STREQUAL "" OR NOT errors STREQUAL "")
  message(FATAL_ERROR "doxygen (status ${status}) warns about the public headers:\n${warnings}${errors}")
endif()
