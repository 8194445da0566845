# AUTOMOC runs Qt's moc as a program of this machine. Cross-building, Qt's is one of the target:
# this puts the emulator in front of it.
if(CMAKE_CROSSCOMPILING AND CMAKE_CROSSCOMPILING_EMULATOR)
  get_target_property(moc Qt5::moc IMPORTED_LOCATION)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "' '" emulator)
  file(WRITE ${PROJECT_BINARY_DIR}/moc "#!/bin/sh\nexec '${emulator}' '${moc}' \"$@\"\n")
  file(CHMOD ${PROJECT_BINARY_DIR}/moc
    PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE)
  set_target_properties(Qt5::moc PROPERTIES IMPORTED_LOCATION ${PROJECT_BINARY_DIR}/moc)
endif()
