# Install rules and the Debian package (CPack): `cpack` in a build tree writes
# autoipconfig_<version>_<arch>.deb; scripts/package builds both architectures.
set(AIC_PACKAGING_DIR ${PROJECT_SOURCE_DIR}/packaging)
set(AIC_DOC_DIR share/doc/${PROJECT_NAME})
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# Debian wants the manual page and the changelog compressed with gzip -9n (no name, no time).
function(aic_gzip source output)
  add_custom_command(OUTPUT ${output}
    COMMAND gzip -9nc ${source} > ${output}
    DEPENDS ${source} VERBATIM)
endfunction()
aic_gzip(${AIC_PACKAGING_DIR}/autoipconfig.8 ${CMAKE_BINARY_DIR}/packaging/autoipconfig.8.gz)
aic_gzip(${AIC_PACKAGING_DIR}/changelog ${CMAKE_BINARY_DIR}/packaging/changelog.gz)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/packaging)
add_custom_target(aic_package_docs ALL
  DEPENDS ${CMAKE_BINARY_DIR}/packaging/autoipconfig.8.gz ${CMAKE_BINARY_DIR}/packaging/changelog.gz)

if(TARGET autoipconfig)
  install(TARGETS autoipconfig RUNTIME DESTINATION sbin)
  # Read-only relocations for the shipped binary, as Debian builds its own.
  target_link_options(autoipconfig PRIVATE LINKER:-z,relro LINKER:-z,now)
endif()
install(FILES ${CMAKE_BINARY_DIR}/packaging/autoipconfig.8.gz DESTINATION share/man/man8)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${AIC_PACKAGING_DIR}/copyright
              ${CMAKE_BINARY_DIR}/packaging/changelog.gz
        DESTINATION ${AIC_DOC_DIR})
install(FILES ${AIC_PACKAGING_DIR}/autoipconfig.service ${AIC_PACKAGING_DIR}/autoipconfig-watch.service
        DESTINATION lib/systemd/system)
# The units' options: a conffile (packaging/conffiles), so dpkg keeps the operator's edits.
install(FILES ${AIC_PACKAGING_DIR}/autoipconfig.default DESTINATION /etc/default RENAME autoipconfig)
# The address plan, every key commented out: also a conffile.
install(FILES ${AIC_PACKAGING_DIR}/autoipconfig.toml DESTINATION /etc/autoipconfig)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "autoipconfig developers <autoipconfig@example.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "give GigE Vision cameras addresses that fit their network")
set(CPACK_PACKAGE_DESCRIPTION
  "autoipconfig finds the GigE Vision cameras behind every network interface of a
machine-vision host and gives each camera whose IPv4 address does not fit the
subnet of its interface a free address in that subnet, then reports every
interface and camera. Two optional systemd units, shipped disabled, run it once
at boot or keep it watching the links while the host runs.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${AIC_PACKAGING_DIR}/postinst ${AIC_PACKAGING_DIR}/postrm ${AIC_PACKAGING_DIR}/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
endif()
include(CPack)
