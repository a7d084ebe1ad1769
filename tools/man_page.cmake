# Writes the kelqavi(1) manual page from the built tool's own help: the
# general usage, then one section per command with what "kelqavi help COMMAND"
# prints. Run as: cmake -DTOOL=path [-DEMULATOR=list] -DVERSION=x -DOUT=file -P
# man_page.cmake

function(run_tool out_var)
  execute_process(COMMAND ${EMULATOR} "${TOOL}" ${ARGN}
                  OUTPUT_VARIABLE text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "'${TOOL} ${ARGN}' failed: ${status}")
  endif()
  set(${out_var} "${text}" PARENT_SCOPE)
endfunction()

# Help text as literal roff: backslashes escaped, and lines that start with a
# dot or a quote kept from being taken as requests.
function(roff_text out_var text)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  string(REGEX REPLACE "\n+$" "" text "${text}")
  set(${out_var} ".nf\n${text}\n.fi\n" PARENT_SCOPE)
endfunction()

run_tool(usage --help)
roff_text(usage_roff "${usage}")
set(page ".TH KELQAVI 1 \"\" \"kelqavi ${VERSION}\" \"User Commands\"\n")
string(APPEND page ".SH NAME\nkelqavi \\- read, write, inspect and repair AVI files\n")
string(APPEND page ".SH SYNOPSIS\n.B kelqavi\n.I COMMAND\n[\\fIOPTIONS\\fR] [\\fIARGUMENTS\\fR]\n")
string(APPEND page ".SH DESCRIPTION\n${usage_roff}.SH COMMANDS\n")

# The command names are the first word of the lines after "Commands:".
string(REGEX MATCH "Commands:\n(  [^\n]*\n)+" listing "${usage}")
string(REGEX MATCHALL "\n  [a-z]+ " names "${listing}")
foreach(name IN LISTS names)
  string(STRIP "${name}" name)
  run_tool(help help ${name})
  roff_text(help_roff "${help}")
  string(APPEND page ".SS ${name}\n${help_roff}")
endforeach()
file(WRITE "${OUT}" "${page}")
