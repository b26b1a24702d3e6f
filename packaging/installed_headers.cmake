# Writes the public headers as they are installed: each include of another one gets the name of the
# installed folder in front, so that nothing of the embedding project can stand in for it, and one
# include directory serves all. Runs during the installation; needs `source_folder`, `header_folder`
# and `headers` (paths from the source folder).
file(REMOVE_RECURSE ${header_folder})
foreach(header IN LISTS headers)
  file(READ ${source_folder}/${header} text)
  string(REGEX REPLACE "#include \"([^\"]+)\"" "#include \"tvsort/\\1\"" text "${text}")
  file(WRITE ${header_folder}/tvsort/${header} "${text}")
endforeach()
