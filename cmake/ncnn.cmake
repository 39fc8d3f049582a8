# naro_ncnn: the inference library. Our own static build of just the layers that the model needs, made once by
# cmake/build_ncnn.sh and kept in a cache outside the build folder; or the system's, when asked for.
add_library(naro_ncnn INTERFACE)
if(NARO_SYSTEM_NCNN)
    find_package(ncnn REQUIRED)
    target_link_libraries(naro_ncnn INTERFACE ncnn)
else()
    # A model of other layers wants another library, also in a build folder that is there already.
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/ncnn_layers.txt
        ${CMAKE_SOURCE_DIR}/cmake/build_ncnn.sh)
    execute_process(COMMAND ${CMAKE_SOURCE_DIR}/cmake/build_ncnn.sh OUTPUT_VARIABLE ncnn_prefix
        OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE ncnn_result)
    if(NOT ncnn_result EQUAL 0)
        message(FATAL_ERROR "ncnn could not be built: see the lines above")
    endif()
    target_include_directories(naro_ncnn SYSTEM INTERFACE ${ncnn_prefix}/include/ncnn)
    target_link_libraries(naro_ncnn INTERFACE ${ncnn_prefix}/lib/libncnn.a Threads::Threads)
endif()
