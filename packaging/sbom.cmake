# Writes the bill of materials (SPDX 2.3): what the programs are made of, as the packages that were there at build time.
#   cmake -DFILES=a;b -DHEADERS=x.hpp;y.hpp -DVERSION=0.1.0 -DOUT=tavo-util.spdx.json -P sbom.cmake
# FILES are our libraries and programs, HEADERS one header of each library that is nothing but headers.

# The package that a file is of: name, version and the source it was built from. Unknown beyond Debian.
function(package_of file)
  file(REAL_PATH ${file} real)
  execute_process(COMMAND dpkg-query -S ${real} OUTPUT_VARIABLE found ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE failed)
  if(failed)
    string(REPLACE /usr/lib /lib short ${real})  # as files were called before the folders were joined
    execute_process(COMMAND dpkg-query -S ${short} OUTPUT_VARIABLE found ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE
      RESULT_VARIABLE failed)
  endif()
  if(failed)
    cmake_path(GET real FILENAME name)
    set(row "${name}|NOASSERTION|NOASSERTION" PARENT_SCOPE)
    return()
  endif()
  string(REGEX REPLACE ": .*" "" package "${found}")
  execute_process(COMMAND dpkg-query -W -f "\${Package}|\${Version}|\${source:Package}" ${package}
    OUTPUT_VARIABLE found COMMAND_ERROR_IS_FATAL ANY)
  set(row "${found}" PARENT_SCOPE)
endfunction()

set(rows)
foreach(file IN LISTS HEADERS)
  package_of(${file})
  list(APPEND rows "${row}|STATIC_LINK")
endforeach()
file(GET_RUNTIME_DEPENDENCIES EXECUTABLES ${FILES} RESOLVED_DEPENDENCIES_VAR needed
  UNRESOLVED_DEPENDENCIES_VAR missing POST_EXCLUDE_REGEXES "/libtavo-[^/]*$")
if(missing)
  message(FATAL_ERROR "sbom.cmake: these libraries are needed and not there: ${missing}")
endif()
foreach(file IN LISTS needed)
  package_of(${file})
  list(APPEND rows "${row}|DYNAMIC_LINK")
endforeach()
list(REMOVE_DUPLICATES rows)
list(SORT rows)

set(packages)
set(relations)
foreach(row IN LISTS rows)
  string(REPLACE "|" ";" fields "${row}")
  list(GET fields 0 name)
  list(GET fields 1 version)
  list(GET fields 2 source)
  list(GET fields 3 how)
  string(REGEX REPLACE "[^A-Za-z0-9.-]" "-" id "SPDXRef-${name}")
  set(locator)
  if(NOT version STREQUAL NOASSERTION)
    string(REPLACE "+" "%2B" escaped "pkg:deb/debian/${name}@${version}")
    set(locator ",\n      \"sourceInfo\": \"Debian source package ${source}\",
      \"externalRefs\": [{\"referenceCategory\": \"PACKAGE-MANAGER\", \"referenceType\": \"purl\", \"referenceLocator\": \"${escaped}\"}]")
  endif()
  list(APPEND packages ",
    {
      \"SPDXID\": \"${id}\", \"name\": \"${name}\", \"versionInfo\": \"${version}\",
      \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false,
      \"licenseConcluded\": \"NOASSERTION\", \"licenseDeclared\": \"NOASSERTION\", \"copyrightText\": \"NOASSERTION\"${locator}
    }")
  list(APPEND relations ",
    {\"spdxElementId\": \"SPDXRef-tavo-util\", \"relationshipType\": \"${how}\", \"relatedSpdxElement\": \"${id}\"}")
endforeach()
string(CONCAT packages ${packages})
string(CONCAT relations ${relations})
# The same materials, the same name: two builds of one state cannot be told apart.
string(UUID uuid NAMESPACE 6ba7b811-9dad-11d1-80b4-00c04fd430c8 NAME "tavo-util-${VERSION}:${rows}" TYPE SHA1)
string(TIMESTAMP created "%Y-%m-%dT%H:%M:%SZ" UTC)  # SOURCE_DATE_EPOCH, where it is set

file(WRITE ${OUT} "{
  \"spdxVersion\": \"SPDX-2.3\", \"dataLicense\": \"CC0-1.0\", \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"name\": \"tavo-util-${VERSION}\", \"documentNamespace\": \"urn:uuid:${uuid}\",
  \"creationInfo\": {\"created\": \"${created}\", \"creators\": [\"Tool: tavo-util-sbom.cmake\"]},
  \"packages\": [
    {
      \"SPDXID\": \"SPDXRef-tavo-util\", \"name\": \"tavo-util\", \"versionInfo\": \"${VERSION}\",
      \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false,
      \"licenseConcluded\": \"MIT\", \"licenseDeclared\": \"MIT\", \"copyrightText\": \"2026 the tavo-util developers\"
    }${packages}
  ],
  \"relationships\": [
    {\"spdxElementId\": \"SPDXRef-DOCUMENT\", \"relationshipType\": \"DESCRIBES\", \"relatedSpdxElement\": \"SPDXRef-tavo-util\"}${relations}
  ]
}
")
