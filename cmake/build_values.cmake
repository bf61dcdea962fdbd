# What a maker sets when configuring: which keyboard the service is for, and how it all is called.
# What cannot be right is refused here, in a sentence. docs/windows.md tells what each one is.
set(VANTREL_KEYBOARD_VENDOR_ID 0x1209 CACHE STRING "USB vendor id of the keyboard")
set(VANTREL_KEYBOARD_PRODUCT_ID 0x0001 CACHE STRING "USB product id of the keyboard")
set(VANTREL_KEYBOARD_DFU_PRODUCT_ID 0x0002 CACHE STRING
    "USB product id of the keyboard in DFU mode, for the driver package")
set(VANTREL_KEYBOARD_INTERFACE 00 CACHE STRING
    "The keyboard's USB interface that takes the enter-DFU report; empty when it has one only")
set(VANTREL_KEYBOARD_COLLECTION 03 CACHE STRING
    "The HID collection on it that takes the report; empty when there is one only")

set(VANTREL_COMPANY "Vantrel" CACHE STRING "The maker's name")
set(VANTREL_COPYRIGHT "Copyright (c) Vantrel" CACHE STRING "Copyright in the programs' details")
set(VANTREL_KEYBOARD_NAME "Vantrel keyboard" CACHE STRING "What Device Manager calls the keyboard")
set(VANTREL_DFU_KEYBOARD_NAME "Vantrel keyboard in DFU mode" CACHE STRING
    "What Device Manager calls the keyboard in DFU mode")
set(VANTREL_SERVICE_TEXT "Keeps the firmware of the detachable keyboard up to date." CACHE STRING
    "The service's description")

# Sets VARIABLE_DIGITS, as Windows writes the id.
macro(vantrel_check_id variable)
  if(NOT ${variable} MATCHES "^0x[0-9A-Fa-f][0-9A-Fa-f][0-9A-Fa-f][0-9A-Fa-f]$")
    message(FATAL_ERROR "${variable} is \"${${variable}}\": it takes 0x and four hexadecimal "
                        "digits, such as 0x1209.")
  endif()
  string(SUBSTRING "${${variable}}" 2 4 ${variable}_DIGITS)
  string(TOUPPER "${${variable}_DIGITS}" ${variable}_DIGITS)
endmacro()
vantrel_check_id(VANTREL_KEYBOARD_VENDOR_ID)
vantrel_check_id(VANTREL_KEYBOARD_PRODUCT_ID)
vantrel_check_id(VANTREL_KEYBOARD_DFU_PRODUCT_ID)
if(VANTREL_KEYBOARD_PRODUCT_ID_DIGITS STREQUAL VANTREL_KEYBOARD_DFU_PRODUCT_ID_DIGITS)
  message(FATAL_ERROR "VANTREL_KEYBOARD_PRODUCT_ID and VANTREL_KEYBOARD_DFU_PRODUCT_ID are both "
                      "${VANTREL_KEYBOARD_PRODUCT_ID}: the keyboard needs another one in DFU mode.")
endif()

# The end of the collection's hardware id, such as &MI_00&Col03.
set(VANTREL_KEYBOARD_PLACE "")
foreach(pair INTERFACE:MI_ COLLECTION:Col)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 name)
  list(GET pair 1 prefix)
  set(number "${VANTREL_KEYBOARD_${name}}")
  if(NOT "${number}" MATCHES "^([0-9A-Fa-f][0-9A-Fa-f])?$")
    message(FATAL_ERROR "VANTREL_KEYBOARD_${name} is \"${number}\": it takes two hexadecimal "
                        "digits, such as 03, or nothing.")
  endif()
  if(NOT number STREQUAL "")
    string(APPEND VANTREL_KEYBOARD_PLACE "&${prefix}${number}")
  endif()
endforeach()

# They go into resources and the INF as they are.
foreach(name COMPANY COPYRIGHT KEYBOARD_NAME DFU_KEYBOARD_NAME SERVICE_TEXT)
  if(NOT VANTREL_${name} MATCHES "^[A-Za-z0-9][A-Za-z0-9 .,:()'&+/-]+$")
    message(FATAL_ERROR "VANTREL_${name} is \"${VANTREL_${name}}\": it takes two or more letters, "
                        "digits, blanks and . , : ( ) ' & + / - and begins with a letter or digit.")
  endif()
endforeach()
