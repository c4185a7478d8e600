# INET_AGENT_SANITIZE=address,undefined or thread: for everything that is compiled, tests included.
if(INET_AGENT_SANITIZE)
  add_compile_options(-fsanitize=${INET_AGENT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${INET_AGENT_SANITIZE})
endif()
