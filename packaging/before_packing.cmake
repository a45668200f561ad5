# Run by CPack on the files to pack: compresses manual pages without time stamps and strips binaries like Debian does.

function(for_files pattern)
  file(GLOB_RECURSE files ${CPACK_TEMPORARY_DIRECTORY}/*)
  list(FILTER files INCLUDE REGEX "/${pattern}$")
  execute_process(COMMAND ${ARGN} ${files} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(strip strip --remove-section=.comment --remove-section=.note)
for_files("man1/[^/]*\\.1" gzip -9n)
for_files("bin/tarn(-film)?" ${strip})
for_files("lib/[^/]+/tarn/tarn-drawing\\.so" ${strip} --strip-unneeded)
for_files("libzrk_tarn\\.so\\.[0-9]+\\.[0-9.]+" ${strip} --strip-unneeded)
for_files("lv2/tarn.lv2/tarn\\.so" ${strip} --strip-unneeded)
for_files("libzrk_tarn\\.a" ${strip} --strip-debug --enable-deterministic-archives)
for_files("libgsttarn\\.so" ${strip} --strip-unneeded)
for_files("ladspa/tarn\\.so" ${strip} --strip-unneeded)
for_files("alsa-lib/libasound_module_pcm_tarn\\.so" ${strip} --strip-unneeded)
