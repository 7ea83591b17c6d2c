# SPDX-License-Identifier: Apache-2.0
# cmake -D INPUT=file -D OUTPUT=file.cpp -D HEADER=header -D NAME=name -P embed.cmake: makes a source
# that defines the bytes of a file as `const unsigned char NAME[]` and their number as NAMESize.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
file(WRITE ${OUTPUT} "#include \"${HEADER}\"\n\nconst unsigned char ${NAME}[] = {${bytes}};\nconst size_t ${NAME}Size = sizeof ${NAME};\n")
