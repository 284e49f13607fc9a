# After the library is linked: a .def with the C names that it exports, out of the linker's list of all names, and of it
# the import library for linkers of Visual Studio: cmake -DALL=FILE -DDEF=FILE -DLIB=FILE -DTOOL=LLVM-DLLTOOL -P ...
# C++ names are left out: they stand as this compiler decorates them.
file(STRINGS ${ALL} names REGEX " @ *[0-9]+")
list(FILTER names EXCLUDE REGEX "^ *_Z")
list(TRANSFORM names REPLACE "^ *([^ =]+).*" "    \\1")
list(SORT names)
list(JOIN names "\n" names)
file(WRITE ${DEF} "; The C names of sysmaint.dll.\nLIBRARY sysmaint.dll\nEXPORTS\n${names}\n")
execute_process(COMMAND ${TOOL} -m i386:x86-64 -d ${DEF} -l ${LIB} COMMAND_ERROR_IS_FATAL ANY)
