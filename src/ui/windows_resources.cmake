# The Windows programs' resources, generated at build time: nothing of the .rc is kept by hand.
#
#   velq_add_windows_resources(<target> program|tool)
#
# writes <target>'s resource script with make_rc.py (program: the string table of src/ui/strings in every
# language, the error list's dialog 51, the wait window's pictures resources/<id>.png, icons 12 and 13,
# VERSIONINFO and the manifest; tool: icon, VERSIONINFO and manifest), compiles it with windres and links
# it into <target>. Included by src/ui/CMakeLists.txt for WIN32; the function is then known everywhere.

function(velq_add_windows_resources target kind)
    find_package(Python3 REQUIRED COMPONENTS Interpreter)
    set(ui ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
    set(out ${CMAKE_CURRENT_BINARY_DIR}/${target}_resources)
    file(MAKE_DIRECTORY ${out})
    set(icon ${out}/velq.ico)
    set(script ${out}/${target}.rc)
    set(manifest ${out}/${target}.manifest)

    add_custom_command(OUTPUT ${icon}
        COMMAND Python3::Interpreter ${ui}/draw_icon.py ${icon}
        DEPENDS ${ui}/draw_icon.py
        COMMENT "Drawing the Windows icon for ${target}"
        VERBATIM)

    set(arguments --kind ${kind} --version ${PROJECT_VERSION} --icon ${icon} --manifest ${manifest})
    set(inputs ${ui}/make_rc.py ${icon})
    if(kind STREQUAL "program")
        set(picture_ids 504 505 509)  # the wait window's
        file(GLOB string_files CONFIGURE_DEPENDS ${ui}/strings/*.txt)
        set(pictures)
        foreach(id IN LISTS picture_ids)
            list(APPEND pictures ${PROJECT_SOURCE_DIR}/resources/${id}.png)
        endforeach()
        list(JOIN picture_ids "," picture_list)
        list(APPEND arguments --strings ${ui}/strings --pictures ${PROJECT_SOURCE_DIR}/resources
             --picture-ids ${picture_list})
        list(APPEND inputs ${ui}/strings/gen_string_table.py ${string_files} ${pictures})
    endif()
    add_custom_command(OUTPUT ${script} ${manifest}
        COMMAND Python3::Interpreter ${ui}/make_rc.py ${arguments} --output ${script}
        DEPENDS ${inputs}
        COMMENT "Generating the resource script of ${target}"
        VERBATIM)

    # An object library of its own: the project's C++ warning flags are no options of windres. Its object
    # is linked into the program whole, so that the linker keeps the .rsrc section nobody refers to.
    add_library(${target}_resources OBJECT ${script})
    # windres reads the files the script names without telling the build; these make it run again.
    set_source_files_properties(${script} PROPERTIES OBJECT_DEPENDS "${icon};${manifest};${pictures}")
    target_link_libraries(${target} PRIVATE ${target}_resources)
endfunction()
