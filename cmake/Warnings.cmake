# One interface target carries what every target of ours is compiled with:
# warnings (errors in our own code), Qt's strictness switches and, on request,
# the sanitizers.
add_library(tarnwell_options INTERFACE)
target_compile_options(tarnwell_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-qual -Wformat=2 -Wundef -Wimplicit-fallthrough -Wmissing-declarations)
if (TARNWELL_WERROR)
    target_compile_options(tarnwell_options INTERFACE -Werror)
endif ()
target_compile_definitions(tarnwell_options INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_URL_CAST_FROM_STRING
    QT_USE_QSTRINGBUILDER
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_FOREACH
    QT_DISABLE_DEPRECATED_BEFORE=0x060400)

if (TARNWELL_SANITIZE)
    set(_san -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_compile_options(tarnwell_options INTERFACE ${_san})
    target_link_options(tarnwell_options INTERFACE ${_san})
endif ()
