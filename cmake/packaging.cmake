# Debian packages: the plug-in for a till (whose host brings the core library), and the tools
# for engineers (posctl, the emulator, and the stand-in core library they run on).

install(FILES README.md docs/configuration.md docs/operations.md docs/answers.md
        docs/architecture.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT till)
install(FILES docs/emulator.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tools)

set(CPACK_PACKAGE_NAME "zelnor-inpas")
set(CPACK_PACKAGE_VENDOR "Zelnor")
set(CPACK_PACKAGE_CONTACT "Zelnor payments team <payments@zelnor.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL till tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "misc")
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "amd64")

set(CPACK_DEBIAN_TILL_PACKAGE_NAME "zelnor-inpas-plugin")
set(CPACK_COMPONENT_TILL_DESCRIPTION
    "Inpas payment plug-in for the Zelnor POS host\n Card payments, refunds, cancellations, reconciliation, reports and SBP\n payments through the Inpas payment client zelnorinpas.")
set(CPACK_DEBIAN_TILL_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12), libqt6core6 (>= 6.4)")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME "zelnor-inpas-tools")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "Engineer's tools for the Inpas payment plug-in\n posctl, a command-line POS host that loads the plug-in as the till does,\n and zelnorinpas, an emulator of the payment client.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "zelnor-inpas-plugin (= ${PROJECT_VERSION}), libc6 (>= 2.34), libstdc++6 (>= 12), libqt6core6 (>= 6.4)")

include(CPack)
