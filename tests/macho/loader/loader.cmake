set(macho_loader "${CMAKE_CURRENT_LIST_DIR}")

set(macho_pure_sources
  "${macho_loader}/compact_unwind.cpp" "${macho_loader}/dwarf.cpp" "${macho_loader}/fixups.cpp"
  "${macho_loader}/handlers.cpp" "${macho_loader}/image.cpp" "${macho_loader}/macho_file.cpp"
  "${macho_loader}/objc_reader.cpp" "${macho_loader}/refusal.cpp")

pellmar_add_gtest(macho_loader_test
  SOURCES "${macho_loader}/loader_test.cpp" ${macho_pure_sources} LIBRARIES pellmar_flags)
