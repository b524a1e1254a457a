# The Windows program's end-to-end tests, under wine64 in the tree's prefix (64-bit trees): the scripted
# UI, a transcript and the simulated sensor, as on Linux. The cross-system case also runs a Linux program
# (VELQ_LINUX_PROGRAM, e.g. build/asan/src/app/VELQFileEncrypt, given by scripts/test-windows.sh when that
# tree is there); without it the case is skipped with the reason.
#
# The key guides' named mutexes (a first key's backup, a key's recovery) are not a sandbox's there, as
# they are on Linux in its runtime folder: every program run in the prefix shares one session's names, and
# a guide refuses to run beside another's. The runs that go through a guide take turns (RESOURCE_LOCK
# wineprefix-key-guides): these cases, the collector's, the main-job and the guides' below, and the app's
# unit tests.
find_program(VELQ_PYTHON3 python3 NO_CMAKE_FIND_ROOT_PATH)
set(VELQ_LINUX_PROGRAM "" CACHE FILEPATH "The Linux VELQFileEncrypt for the cross-system end-to-end case")

# One ctest test per case of an end-to-end driver against the Windows programs: e2e_windows_<group>_<case>
# runs `python3 DRIVER ARGS... wine-run.sh wine64 PREFIX case` (PREFIX: the tree's prefix unless given),
# labelled e2e, 77 being a skip, with its TIMEOUT, the RESOURCE_LOCKs of LOCKS and an ENVIRONMENT entry.
function(velq_windows_e2e group driver)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "PREFIX;TIMEOUT;ENVIRONMENT" "ARGS;CASES;LOCKS")
    if(NOT arg_PREFIX)
        set(arg_PREFIX ${CMAKE_BINARY_DIR}/wineprefix)
    endif()
    foreach(case ${arg_CASES})
        set(test e2e_windows_${group}_${case})
        add_test(NAME ${test}
                 COMMAND ${VELQ_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/${driver} ${arg_ARGS}
                         ${PROJECT_SOURCE_DIR}/cmake/toolchains/wine-run.sh ${VELQ_WINE64} ${arg_PREFIX} ${case})
        set_tests_properties(${test} PROPERTIES LABELS e2e TIMEOUT ${arg_TIMEOUT} SKIP_RETURN_CODE 77)
        if(arg_LOCKS)
            set_tests_properties(${test} PROPERTIES RESOURCE_LOCK "${arg_LOCKS}")
        endif()
        if(arg_ENVIRONMENT)
            set_tests_properties(${test} PROPERTIES ENVIRONMENT "${arg_ENVIRONMENT}")
        endif()
    endforeach()
endfunction()
if(TARGET VELQFileEncrypt AND TARGET velq AND VELQ_WINE64 AND CMAKE_SIZEOF_VOID_P EQUAL 8 AND VELQ_PYTHON3)
    foreach(case progress_and_error_list search cross_system)
        add_test(NAME e2e_windows_${case}
                 COMMAND ${VELQ_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/windows_program_test.py
                         $<TARGET_FILE:VELQFileEncrypt> $<TARGET_FILE:velq>
                         ${PROJECT_SOURCE_DIR}/cmake/toolchains/wine-run.sh
                         ${VELQ_WINE64} ${CMAKE_BINARY_DIR}/wineprefix "${VELQ_LINUX_PROGRAM}" ${case})
        set_tests_properties(e2e_windows_${case} PROPERTIES LABELS e2e TIMEOUT 600 SKIP_RETURN_CODE 77
                             RESOURCE_LOCK "wineprefix-temp;wineprefix-key-guides")
    endforeach()
endif()

# The program's entry and roads (front_roads_test.py, as on Linux): every road reaches the gate, which finds
# no sensor. null_cmdline is left out: a Windows program always has a command line (argc 0 is POSIX's).
if(TARGET VELQFileEncrypt AND VELQ_WINE64 AND CMAKE_SIZEOF_VOID_P EQUAL 8 AND VELQ_PYTHON3)
    velq_windows_e2e(front front_roads_test.py ARGS $<TARGET_FILE:VELQFileEncrypt> TIMEOUT 120
                     CASES empty_cmdline plain_path single_file menu_type_3 handoff)
endif()

# The hand-off through velq.exe (handoff_test.py, as on Linux), with Windows' own named objects and the
# stand-in program built for Windows.
if(TARGET VELQFileEncrypt AND TARGET velq AND VELQ_WINE64 AND CMAKE_SIZEOF_VOID_P EQUAL 8 AND VELQ_PYTHON3)
    add_executable(handoff_stand_in handoff_stand_in.cpp)
    target_link_libraries(handoff_stand_in PRIVATE velq_warnings)
    velq_windows_e2e(handoff handoff_test.py ARGS $<TARGET_FILE:velq> $<TARGET_FILE:VELQFileEncrypt> TIMEOUT 180
                     ENVIRONMENT "VELQ_HANDOFF_STAND_IN=$<TARGET_FILE:handoff_stand_in>"
                     CASES paths_reach_the_gate search_without_the_gate malformed_texts_fail_quietly
                           menu_type_read_whole program_that_never_signals wrong_use)
endif()

# velq collect (collect_test.py, as on Linux): the items of one selection, each started on its own as Explorer
# starts them, become one request of the Windows program. Its encryptions take turns on the prefix's
# temporary folder with the other runs that prove files, and its first key's backup with the other guides.
if(TARGET VELQFileEncrypt AND TARGET velq AND VELQ_WINE64 AND CMAKE_SIZEOF_VOID_P EQUAL 8 AND VELQ_PYTHON3)
    velq_windows_e2e(collect collect_test.py ARGS $<TARGET_FILE:velq> $<TARGET_FILE:VELQFileEncrypt> TIMEOUT 300
                     LOCKS wineprefix-temp wineprefix-key-guides
                     CASES selection_becomes_one_request later_invocation_starts_anew wrong_use)
endif()

# The core's main-job cases (main_job_test.py, as on Linux) against the Windows programs in the same
# prefix: the drivers take the Wine runner's values after the programs. Every case runs here. The file
# modes of the key's backup are checked on Linux only (POSIX modes; Windows keeps others out by the user's
# folders), and the temporary folder checked for a proof's copy is the prefix's user's, not TMPDIR's.
# The proofs' plain copies bear their files' names in that one folder, which every run in the prefix
# shares: the runs that encrypt or decrypt take turns (RESOURCE_LOCK wineprefix-temp), as two batches of
# one user on files of the same name would otherwise meet there.
if(TARGET VELQFileEncrypt AND TARGET velq AND VELQ_WINE64 AND CMAKE_SIZEOF_VOID_P EQUAL 8 AND VELQ_PYTHON3)
    velq_windows_e2e(main main_job_test.py ARGS $<TARGET_FILE:VELQFileEncrypt> $<TARGET_FILE:velq> TIMEOUT 600
                     LOCKS wineprefix-temp wineprefix-key-guides
                     CASES first_encryption folder_round_trip damaged_file key_recovery cancel replace_question)
endif()

# The fingerprint gate's cases (gate_test.py, as on Linux) against the Windows program in the same prefix.
# killed_holder is left out: on Windows the turn is a named auto-reset event, which a process killed in its
# turn never sets, so the next process waits for ever (the driver skips it there, saying so).
if(TARGET VELQFileEncrypt AND VELQ_WINE64 AND CMAKE_SIZEOF_VOID_P EQUAL 8 AND VELQ_PYTHON3)
    velq_windows_e2e(gate gate_test.py ARGS $<TARGET_FILE:VELQFileEncrypt> TIMEOUT 300
                     CASES plain_path single_file refused not_closing not_enrolled taking_turns)
endif()

# The native windows on a private X display (Xvfb), answered by key presses; skipped (77) without Xvfb or
# xdotool. A prefix of their own, whose windows the X11 driver draws; its cases take turns, since each ends
# the prefix's server when it is done.
if(TARGET VELQFileEncrypt AND TARGET velq AND TARGET velqmsg AND VELQ_WINE64 AND CMAKE_SIZEOF_VOID_P EQUAL 8
   AND VELQ_PYTHON3)
    velq_windows_e2e(gui windows_gui_test.py
                     ARGS $<TARGET_FILE:VELQFileEncrypt> $<TARGET_FILE:velq> $<TARGET_FILE:velqmsg>
                     PREFIX ${CMAKE_BINARY_DIR}/wineprefix-windows TIMEOUT 600 LOCKS wineprefix-windows
                     CASES message_box_answers first_encryption_with_backup key_recovered_from_backup
                           wait_window_closed cancelled_progress_and_error_list error_list_copied_and_closed)
endif()

# The key guides and the search in processes of their own (guides_test.py, as on Linux): guides_driver runs
# them directly, with the program's texts from its own resources as the program reads them. Every case runs
# here; the guides' cases take turns with the other runs through a guide (see the top). The search without
# a location walks the Windows user's profile, the prefix's, which is that program's home whatever HOME says.
if(TARGET velq_app)
    add_executable(guides_driver guides_driver.cpp ${PROJECT_SOURCE_DIR}/src/app/VELQCryptBatch.cpp)
    target_link_libraries(guides_driver PRIVATE "$<LINK_GROUP:RESCAN,velq_app,velq_engine>" velq_warnings)
    velq_add_windows_resources(guides_driver program)
endif()
if(TARGET guides_driver AND VELQ_WINE64 AND CMAKE_SIZEOF_VOID_P EQUAL 8 AND VELQ_PYTHON3)
    velq_windows_e2e(guides guides_test.py ARGS $<TARGET_FILE:guides_driver> TIMEOUT 300
                     LOCKS wineprefix-key-guides
                     CASES backup_then_recovery cancelled_backup second_backup_process)
    velq_windows_e2e(guides guides_test.py ARGS $<TARGET_FILE:guides_driver> TIMEOUT 300 CASES search_locations)
endif()
