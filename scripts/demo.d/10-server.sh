# A server program: raw registers, the IR-cut filter, requests from several threads, start and end of the library.

heading "A server program talks to the camera"
with_camera server
show "a setting is stored and requested" "saturation 5 is stored"
show "the server writes half of a register" 'registers "w,200,9,0x0f,5" -> 160'
show "the camera sees the other half kept" "w 200/0x09=0xa5"
show "a value out of range is refused" "saturation 7 is refused"
show "four threads read back what each of them wrote" 'registers "r,200,3" -> 13'
show "after the end no request hangs" "no request after the end"
expect "0 steps not as expected"
