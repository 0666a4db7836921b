# With TKS_COVERAGE, a list of folders, the library's sources in these count which of their lines are run. They are not
# optimised, so that lines stay what they are; everything else is compiled as ever.
if(TKS_COVERAGE)
  get_target_property(tks_sources tks_objects SOURCES)
  list(JOIN TKS_COVERAGE "|" tks_counted)
  list(FILTER tks_sources INCLUDE REGEX "^${PROJECT_SOURCE_DIR}/(${tks_counted})/")
  # The precompiled header is one of optimised sources.
  set_source_files_properties(${tks_sources} TARGET_DIRECTORY tks_objects PROPERTIES SKIP_PRECOMPILE_HEADERS ON COMPILE_OPTIONS
                              "-O0;-g1;--coverage;-fprofile-abs-path;-fprofile-update=atomic")
  add_link_options(--coverage)
endif()
