# A server program: raw registers, the IR-cut filter, requests from several threads, start and end of the library.

heading "A server program talks to the camera"
stored_settings
start_camera
on_camera server
stop_camera
expect "w 200/0x09=0xa5"
expect "0 steps not as expected"
