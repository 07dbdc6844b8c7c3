target_sources(platform_foundation PRIVATE
  xpc/objc/PlatformXPCConnection.mm
  xpc/objc/PlatformXPCInterface.mm
  xpc/objc/PlatformXPCListener.mm
  xpc/objc/PlatformXPCListenerEndpoint.mm
  xpc/objc/PlatformXPCProxy.mm
  xpc/objc/connection_core.mm
  xpc/objc/listener_core.mm
  xpc/objc/protocol_methods.mm
  xpc/objc/reply_block.mm
  xpc/transport/acceptor.cpp
  xpc/transport/channel.cpp
  xpc/transport/io_thread.cpp
  xpc/transport/service_directory.cpp
  xpc/wire/object_coding.mm
  xpc/wire/signature.cpp
  xpc/wire/wire_decoder.cpp
  xpc/wire/wire_encoder.cpp)
target_include_directories(platform_foundation PRIVATE
  "${CMAKE_CURRENT_SOURCE_DIR}/blocks"
  "${CMAKE_CURRENT_SOURCE_DIR}/xpc")
