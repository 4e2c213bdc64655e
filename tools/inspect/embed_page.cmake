# Puts page.html together with its style and its scripts, and writes it as a C++ string literal.
# The page's policy names them by their hashes, so the browser runs nothing else that stands there.
# cmake -D SOURCE=<this folder> -D OUTPUT=<file> -P embed_page.cmake

# Sets `result` to "sha256-<base64>", as a content security policy has it.
function(get_hash text result)
  set(digits ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  string(SHA256 hex "${text}")
  string(APPEND hex 00)  # 256 bits are 43 digits of six bits, the last one with two bits to spare.
  set(base64 "")
  foreach(i RANGE 0 63 3)  # Three digits of four bits are two of six.
    string(SUBSTRING ${hex} ${i} 3 group)
    math(EXPR high "0x${group} >> 6")
    math(EXPR low "0x${group} & 63")
    string(SUBSTRING ${digits} ${high} 1 first)
    string(SUBSTRING ${digits} ${low} 1 second)
    string(APPEND base64 ${first}${second})
  endforeach()
  string(SUBSTRING ${base64} 0 43 base64)
  set(${result} "sha256-${base64}=" PARENT_SCOPE)
endfunction()

file(READ "${SOURCE}/page.html" page)
foreach(part page.css page_elements.js page_timeline.js page.js)
  file(READ "${SOURCE}/${part}" text)
  get_hash("${text}" hash)
  string(REPLACE "{{${part} hash}}" "${hash}" page "${page}")
  string(REPLACE "{{${part}}}" "${text}" page "${page}")
endforeach()
file(WRITE "${OUTPUT}" "const char kPageTemplate[] = R\"page(${page})page\";\n")
