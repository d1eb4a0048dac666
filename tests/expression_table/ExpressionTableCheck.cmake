# Runs the expression table's build-time check on a variant of the shipped data file and checks
# the outcome: a variant that breaks the table's shape must be refused with a message that says
# why; a variant with unusual key bytes must be accepted and reach the generated rows intact.
#
#   cmake -DCHECK_SCRIPT=<ExpressionTable.cmake> -DTABLE_FILE=<expression_table.tsv>
#         -DWORK_DIR=<folder> -DCASE=<name> -P ExpressionTableCheck.cmake
cmake_minimum_required(VERSION 3.25)

file(STRINGS "${TABLE_FILE}" rows)
list(LENGTH rows row_count)
if(NOT row_count EQUAL 80)
  message(FATAL_ERROR "the shipped data file should hold 80 rows, it holds ${row_count}")
endif()

function(write_rows path)
  list(JOIN ARGN "\n" text)
  file(WRITE "${path}" "${text}\n")
endfunction()

function(key_of row out)
  string(REGEX REPLACE "\t.*" "" key "${row}")
  set(${out} "${key}" PARENT_SCOPE)
endfunction()

function(unid_of row out)
  string(REGEX REPLACE ".*\t" "" unid "${row}")
  set(${out} "${unid}" PARENT_SCOPE)
endfunction()

set(variant "${WORK_DIR}/${CASE}.tsv")
set(generated "${WORK_DIR}/${CASE}.inc")
file(MAKE_DIRECTORY "${WORK_DIR}")
file(REMOVE "${generated}")
set(expect_accepted FALSE)

if(CASE STREQUAL "MissingRow")
  list(REMOVE_AT rows 79)
  write_rows("${variant}" ${rows})
  set(expected_message "holds 79 rows; the expression table has exactly 80")
elseif(CASE STREQUAL "DuplicateKey")
  # Rows 1 and 2 share their UNID, so only the repeated key is wrong.
  list(GET rows 0 first)
  list(GET rows 1 second)
  key_of("${first}" first_key)
  unid_of("${second}" second_unid)
  unid_of("${first}" first_unid)
  if(NOT first_unid STREQUAL second_unid)
    message(FATAL_ERROR "the first two rows of the shipped file should share their UNID")
  endif()
  list(REMOVE_AT rows 1)
  list(INSERT rows 1 "${first_key}\t${second_unid}")
  write_rows("${variant}" ${rows})
  set(expected_message ":2: the key \"${first_key}\" repeats the key of line 1")
elseif(CASE STREQUAL "RowUnderAnotherUnid")
  list(GET rows 0 first)
  unid_of("${first}" first_unid)
  key_of("${first}" first_key)
  list(GET rows 79 last)
  unid_of("${last}" last_unid)
  list(REMOVE_AT rows 0)
  list(INSERT rows 0 "${first_key}\t${last_unid}")
  write_rows("${variant}" ${rows})
  set(expected_message "UNID ${first_unid} has 27 rows; it must have 28")
elseif(CASE STREQUAL "KeyBytesKeptAsTheyAre")
  # A key with the bytes that CMake lists and C++ literals treat specially, two blanks inside
  # and one at the end, in place of the first row's key.
  list(GET rows 0 first)
  unid_of("${first}" first_unid)
  list(REMOVE_AT rows 0)
  list(JOIN rows "\n" rest)
  file(WRITE "${variant}" "say \"hi\"  a\\b;c [d] ?? \t${first_unid}\n${rest}")
  set(expect_accepted TRUE)
  set(expected_row "{\"say \\\"hi\\\"  a\\\\b;c [d] ?? \", \"${first_unid}\"},")
else()
  message(FATAL_ERROR "unknown case ${CASE}")
endif()

execute_process(
  COMMAND "${CMAKE_COMMAND}" -DTABLE_FILE=${variant} -DOUTPUT_FILE=${generated} -P "${CHECK_SCRIPT}"
  RESULT_VARIABLE result
  OUTPUT_VARIABLE out
  ERROR_VARIABLE err)

if(expect_accepted)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "the check refused a valid table:\n${err}")
  endif()
  file(STRINGS "${generated}" generated_rows)
  list(LENGTH generated_rows generated_count)
  if(NOT generated_count EQUAL 81)
    message(FATAL_ERROR "expected a header line and 80 rows, got ${generated_count} lines")
  endif()
  file(READ "${generated}" generated_text)
  string(FIND "${generated_text}" "\n${expected_row}\n" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the generated rows lack ${expected_row}:\n${generated_text}")
  endif()
else()
  if(result EQUAL 0)
    message(FATAL_ERROR "the check accepted a table it must refuse (${CASE})")
  endif()
  string(FIND "${err}" "${expected_message}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the check's message lacks \"${expected_message}\":\n${err}")
  endif()
  if(EXISTS "${generated}")
    message(FATAL_ERROR "a refused table still produced ${generated}")
  endif()
endif()
