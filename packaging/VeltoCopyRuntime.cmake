# Copies the files DLLS to FOLDER. Programs that are built at the same time may have the same folder, so one copies at a
# time: it owns the file LOCK.
file(LOCK "${LOCK}" GUARD PROCESS TIMEOUT 60)
foreach(dll IN LISTS DLLS)
    file(COPY "${dll}" DESTINATION "${FOLDER}")
endforeach()
