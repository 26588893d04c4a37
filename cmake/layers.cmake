# vey_library(FOLDER SOURCES...): the static library vey_FOLDER built from src/FOLDER.
#
# Headers are included as "FOLDER/name.h". Each library publishes an include root that holds
# only its own folder (a link to src/FOLDER), and a library sees another's headers only by
# linking it; so a source that includes a header of a library its own does not link fails to
# compile. Hosts without symbolic links (Windows) publish src/ itself instead, and only
# tools/check-layers guards the layers there.
function(vey_library folder)
    add_library(vey_${folder} STATIC ${ARGN})
    set(source ${PROJECT_SOURCE_DIR}/src/${folder})
    if(CMAKE_HOST_WIN32)
        target_include_directories(vey_${folder} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    else()
        set(root ${PROJECT_BINARY_DIR}/layers/${folder})
        file(MAKE_DIRECTORY ${root})
        file(CREATE_LINK ${source} ${root}/${folder} SYMBOLIC)
        target_include_directories(vey_${folder} PUBLIC ${root})
    endif()
endfunction()
