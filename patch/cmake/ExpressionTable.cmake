# Checks the expression table's data file and turns it into C++ initialisers.
#
#   cmake -DTABLE_FILE=<rows.tsv> -DOUTPUT_FILE=<rows.inc> -P ExpressionTable.cmake
#
# The data file holds one row a line: the expression text (the key), a TAB, and the UNID of the
# predefined document that refers to it (32 upper-case hexadecimal digits). Keys are taken byte
# for byte: blanks and punctuation count, nothing is trimmed. The last line may lack its newline.
#
# The file must hold exactly the rows the fix-up expects: 80 distinct keys, with the row count
# given below for each of the six UNIDs. Anything else stops the build with a message naming the
# file and the line. OUTPUT_FILE gets one line a row, {"key", "UNID"}, in file order.
cmake_minimum_required(VERSION 3.25)

set(EXPECTED_ROW_COUNT 80)
set(EXPECTED_UNID_ROWS
    CCCD9A452EEE6AF248256E1600236933=28
    9CA8289B72BE6CE848256E1600236921=14
    48D8D19C551210C848256E1600236930=1
    9679C1FA3EC9B30648256E16002368DE=25
    29FBCBA3EE0E297F48256E16002368FF=6
    2B41699AA621F29448256E16002368F8=6)

if(NOT DEFINED TABLE_FILE OR NOT DEFINED OUTPUT_FILE)
  message(FATAL_ERROR "ExpressionTable.cmake: TABLE_FILE and OUTPUT_FILE must be given")
endif()
if(NOT EXISTS "${TABLE_FILE}")
  message(FATAL_ERROR "${TABLE_FILE}: the expression table's data file does not exist")
endif()

# The reason goes out as one unwrapped "file:line: text" line, then the script fails.
function(table_error line text)
  if(line)
    message(NOTICE "${TABLE_FILE}:${line}: ${text}")
  else()
    message(NOTICE "${TABLE_FILE}: ${text}")
  endif()
  message(FATAL_ERROR "The expression table's data file is not usable.")
endfunction()

# The file is read as hexadecimal so that no byte of a key (';', '[', '\', '"') is taken for
# CMake list or escape syntax; each key is rebuilt from its bytes for the C++ literal and kept in
# hexadecimal for the duplicate check.
file(READ "${TABLE_FILE}" table_hex HEX)
string(REGEX MATCHALL ".." table_bytes "${table_hex}")

set(rows_text "")
set(seen_keys "")       # hexadecimal key of each row so far
set(seen_unids "")      # UNID of each row so far
set(line_number 1)
set(field 0)            # 0: in the key, 1: in the UNID
set(key_hex "")
set(key_literal "")
set(unid "")
set(line_has_bytes FALSE)

macro(finish_row)
  if(NOT line_has_bytes)
    table_error(${line_number} "empty line (every line must be a row: key, TAB, UNID)")
  endif()
  if(field EQUAL 0)
    table_error(${line_number} "no TAB between the key and the UNID")
  endif()
  if(key_hex STREQUAL "")
    table_error(${line_number} "the key is empty")
  endif()
  string(LENGTH "${unid}" unid_length)
  if(NOT unid MATCHES "^[0-9A-F]+$" OR NOT unid_length EQUAL 32)
    table_error(${line_number} "\"${unid}\" is not a UNID (32 upper-case hexadecimal digits)")
  endif()
  list(FIND seen_keys "${key_hex}" earlier)
  if(NOT earlier EQUAL -1)
    math(EXPR earlier_line "${earlier} + 1")
    table_error(${line_number} "the key \"${key_literal}\" repeats the key of line ${earlier_line}")
  endif()
  list(APPEND seen_keys "${key_hex}")
  list(APPEND seen_unids "${unid}")
  string(APPEND rows_text "{\"${key_literal}\", \"${unid}\"},\n")
  math(EXPR line_number "${line_number} + 1")
  set(field 0)
  set(key_hex "")
  set(key_literal "")
  set(unid "")
  set(line_has_bytes FALSE)
endmacro()

foreach(byte IN LISTS table_bytes)
  if(byte STREQUAL "0a")
    finish_row()
    continue()
  endif()
  set(line_has_bytes TRUE)
  if(byte STREQUAL "09")
    if(field EQUAL 1)
      table_error(${line_number} "more than one TAB (the key must not hold one)")
    endif()
    set(field 1)
    continue()
  endif()
  if(byte STREQUAL "0d")
    table_error(${line_number} "carriage return: the file must have plain LF line ends")
  endif()
  math(EXPR code "0x${byte}")
  if(code LESS 32 OR code GREATER 126)
    table_error(${line_number} "byte 0x${byte}: keys are printable ASCII text")
  endif()
  string(ASCII ${code} char)
  if(field EQUAL 1)
    string(APPEND unid "${char}")
  else()
    string(APPEND key_hex "${byte}")
    if(byte STREQUAL "22" OR byte STREQUAL "5c")  # '"' and '\' are escaped in the literal
      string(APPEND key_literal "\\")
    endif()
    string(APPEND key_literal "${char}")
  endif()
endforeach()
if(line_has_bytes)
  finish_row()
endif()

set(expected_unids "")
foreach(entry IN LISTS EXPECTED_UNID_ROWS)
  string(REGEX REPLACE "=.*" "" expected_unid "${entry}")
  list(APPEND expected_unids "${expected_unid}")
endforeach()
set(line_number 1)
foreach(row_unid IN LISTS seen_unids)
  list(FIND expected_unids "${row_unid}" known)
  if(known EQUAL -1)
    table_error(${line_number} "UNID ${row_unid} is not one of the table's six UNIDs")
  endif()
  math(EXPR line_number "${line_number} + 1")
endforeach()

list(LENGTH seen_keys row_count)
if(NOT row_count EQUAL EXPECTED_ROW_COUNT)
  table_error("" "holds ${row_count} rows; the expression table has exactly ${EXPECTED_ROW_COUNT}")
endif()

foreach(entry IN LISTS EXPECTED_UNID_ROWS)
  string(REPLACE "=" ";" pair "${entry}")
  list(GET pair 0 expected_unid)
  list(GET pair 1 expected_count)
  set(count 0)
  foreach(row_unid IN LISTS seen_unids)
    if(row_unid STREQUAL expected_unid)
      math(EXPR count "${count} + 1")
    endif()
  endforeach()
  if(NOT count EQUAL expected_count)
    table_error("" "UNID ${expected_unid} has ${count} rows; it must have ${expected_count}")
  endif()
endforeach()
get_filename_component(table_name "${TABLE_FILE}" NAME)
set(generated "// Generated from ${table_name} by ExpressionTable.cmake; edit the data file instead.\n${rows_text}")
file(WRITE "${OUTPUT_FILE}" "${generated}")
