# cmake -DSOAK=... -P notices_a_lost_frame.cmake: fails unless the soak ends with status 1 and says
# what was lost when a frame is thrown away on the receiving side.
execute_process(COMMAND ${SOAK} 0.05 --cameras 2 --crowd 0 --threads 2 --seed 1 --lose-one
    RESULT_VARIABLE status OUTPUT_VARIABLE output)
if(NOT status EQUAL 1 OR
   NOT output MATCHES "soak: FAILED: camera 0: frame [0-9]+ (was lost|had not been received)")
    message(FATAL_ERROR "status ${status}, no complaint of a lost frame in\n${output}")
endif()
