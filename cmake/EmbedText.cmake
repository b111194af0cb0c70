# Writes OUTPUT, a C++ source that defines the constant NAME (in namespace
# NAMESPACE) holding the text of INPUT, so that a program carries a file such
# as a page template inside itself.  Run as a script:
#   cmake -DINPUT=... -DOUTPUT=... -DNAMESPACE=... -DNAME=... -P EmbedText.cmake
file(READ ${INPUT} text)
set(delimiter "KQVTEXT")
file(WRITE ${OUTPUT}.new
  "// Generated from ${INPUT} by cmake/EmbedText.cmake; edit that file instead.\n"
  "namespace ${NAMESPACE} {\n"
  "extern const char *const ${NAME};\n"
  "const char *const ${NAME} = R\"${delimiter}(${text})${delimiter}\";\n"
  "}  // namespace ${NAMESPACE}\n")
file(COPY_FILE ${OUTPUT}.new ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.new)
