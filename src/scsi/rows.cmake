# Turns a table of texts into rows that scsi.cpp includes: fields separated by a TAB, the last one the
# text, become ROW(field, ..., "text"). The lines at the top that begin with # are left out.
# usage: cmake -DTABLE=x.tsv -DROWS=x.inc -P rows.cmake
#
# The file is one string all the way, never a CMake list: texts hold brackets, and may hold semicolons
# and end in blanks.
file(READ "${TABLE}" rows)
string(REGEX REPLACE "^#[^\n]*\n" "" rows "${rows}")
string(REPLACE "\\" "\\\\" rows "${rows}")
string(REPLACE "\"" "\\\"" rows "${rows}")
string(REGEX REPLACE "([^\n]+)\t([^\t\n]*)\n" "ROW(\\1, \"\\2\")\n" rows "${rows}")
string(REPLACE "\t" ", " rows "${rows}")
file(WRITE "${ROWS}" "${rows}")
