# Writes a C++ file that defines a constant array with the bytes of a file:
#
#   cmake -D INPUT=close-dark.tiff -D OUTPUT=AFXCloseDarkPicture.cpp -D SYMBOL=AFXCloseDarkPicture
#         -P EmbedPicture.cmake
#
# An array in C++ goes to the read-only data of every object format and of every slice of a universal
# binary alike, which `.incbin` and objcopy do not. A file of another length than AFXPictures.h
# declares does not compile; the compiler alone would fill a short one up with zeros.

file(READ "${INPUT}" bytes HEX)
string(REGEX REPLACE "(................................)" "\\1\n" bytes "${bytes}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
get_filename_component(name "${INPUT}" NAME)
file(SIZE "${INPUT}" size)
file(WRITE "${OUTPUT}" "// Made from ${name} by EmbedPicture.cmake.
#include \"resources/AFXPictures.h\"

static_assert(${SYMBOL}Length == ${size}, \"${name} has another length than declared\");

const unsigned char ${SYMBOL}[] = {
${bytes}
};
")
