target_sources(platform_foundation PRIVATE
  xpc/NSXPCConnection+Platform.mm
  xpc/NSXPCInterface+Platform.mm
  xpc/NSXPCListener+Platform.mm
  xpc/PlatformXPCConnection.mm
  xpc/PlatformXPCInterface.mm
  xpc/PlatformXPCListener.mm
  xpc/PlatformXPCListenerEndpoint.mm
  xpc/PlatformXPCProxy.mm
  xpc/acceptor.cpp
  xpc/channel.cpp
  xpc/connection_core.mm
  xpc/io_thread.cpp
  xpc/listener_core.mm
  xpc/object_coding.mm
  xpc/protocol_methods.mm
  xpc/reply_block.mm
  xpc/service_directory.cpp
  xpc/signature.cpp
  xpc/wire_decoder.cpp
  xpc/wire_encoder.cpp
  xpc/xpc_error.mm)
target_include_directories(platform_foundation PRIVATE
  "${CMAKE_CURRENT_SOURCE_DIR}/blocks"
  "${CMAKE_CURRENT_SOURCE_DIR}/xpc")
