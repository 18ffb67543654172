# Fails unless the README shows the sample host as it is compiled: -D README=FILE -D SAMPLE=FILE
file(READ "${README}" readme)
file(READ "${SAMPLE}" sample)
string(STRIP "${sample}" sample)
string(FIND "${readme}" "```cpp\n${sample}\n```" position)
if(position EQUAL -1)
  message(FATAL_ERROR "README.md does not show docs/samples/host.cpp as it stands")
endif()
