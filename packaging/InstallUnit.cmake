# Writes the systemd user unit at install time, so that its ExecStart names the
# program where this installation puts it (`--prefix ~/.local` included).
# Set beforehand by src/app/CMakeLists.txt: OMBRELO_BINDIR, OMBRELO_UNITDIR and
# OMBRELO_UNIT_TEMPLATE.
foreach(folder BINDIR UNITDIR)
  if(IS_ABSOLUTE "${OMBRELO_${folder}}")
    set(full_${folder} "${OMBRELO_${folder}}")
  else()
    set(full_${folder} "${CMAKE_INSTALL_PREFIX}/${OMBRELO_${folder}}")
  endif()
endforeach()
set(OMBRELO_PROGRAM "${full_BINDIR}/ombrelo")
set(unit "$ENV{DESTDIR}${full_UNITDIR}/ombrelo.service")
message(STATUS "Installing: ${unit}")
configure_file("${OMBRELO_UNIT_TEMPLATE}" "${unit}" @ONLY)
