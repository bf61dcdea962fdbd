# vantrel.exe: one file that runs on a bare Windows.
add_executable(vantrel service/main.cpp)
target_link_libraries(vantrel PRIVATE
  vantrel_product vantrel_product_options advapi32 cfgmgr32 hid userenv winusb)
target_link_options(vantrel PRIVATE -static -Wl,--gc-sections)
