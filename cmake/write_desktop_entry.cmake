# Writes the desktop entry ENTRY, which starts PROGRAM with ARGUMENT. TITLE and COMMENT are for people.
#
# A word of an Exec line is quoted as for a shell, a percent sign begins a field code, and a
# backslash is one of the file format before it is one of the word.
function(quote word result)
  string(REGEX REPLACE "([\\\"`$])" "\\\\\\1" word "${word}")
  string(REPLACE "\\" "\\\\" word "${word}")
  string(REPLACE "%" "%%" word "${word}")
  set(${result} "\"${word}\"" PARENT_SCOPE)
endfunction()

quote("${PROGRAM}" program)
quote("${ARGUMENT}" argument)
set(comment "")
if(NOT "${COMMENT}" STREQUAL "")  # "No" is a text, too.
  set(comment "Comment=${COMMENT}\n")
endif()
file(WRITE "${ENTRY}" "[Desktop Entry]
Type=Application
Name=${TITLE}
${comment}NoDisplay=true
Exec=${program} ${argument}
")
