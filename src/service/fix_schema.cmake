# Puts right the one construct of the generated schemas that XML Schema forbids: the code
# generator writes the enumeration of a bit-flag list type (nsc1:SubscribeLogOptions) as
# <list><restriction>...</restriction></list>, where a list's item type must be an itemType
# attribute or a <simpleType> child, and strict clients (zeep) refuse every WSDL that embeds
# it. The restriction is wrapped in the <simpleType> the schema requires; messages on the
# wire are unchanged.
#
#   cmake -DDIR=<directory of the generated files> -P fix_schema.cmake
file(GLOB files ${DIR}/*.wsdl ${DIR}/*.xsd)
foreach(file ${files})
  file(READ ${file} text)
  string(REGEX REPLACE "<list>([ \t\r\n]*<restriction[^>]*>.*</restriction>[ \t\r\n]*)</list>"
         "<list><simpleType>\\1</simpleType></list>" fixed "${text}")
  if(NOT fixed STREQUAL text)
    file(WRITE ${file} "${fixed}")
  endif()
endforeach()
