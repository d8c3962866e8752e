# Picture and white balance: colour to monochrome and back, light sources, manual gains, curves.

heading "Picture: colour brings white balance and saturation with it; light sources; manual gains; curves"
stored_settings color=color wb_mode=atwpro saturation=4 contrast=3 sharpness=3 expcomp=9 rgain=128 bgain=64
start_camera
on_camera_briefly camctl shell <<'COMMANDS'
set color=monochrome
set color=color
set wb=indoor
set wb=fluorescent
set wb=manual
set rgain=255 bgain=0
set contrast=6 sharpness=0 gamma=2 expcomp=18 blcomp=high
COMMANDS
stop_camera

expect "w 10/0x0a=0x01"
# Once at the start, once with the change to colour.
expect "w 12/0x00=0x00 12/0x01=0x02" 2
expect "w 10/0x09=0xa0" 2
# The preset light sources are manual gains.
expect "w 12/0x7c=0x11 12/0x7d=0x10 12/0x7e=0x11 12/0x7f=0x10 12/0x00=0x04"
expect "w 12/0x7c=0xf6 12/0x7d=0x0a 12/0x7e=0x0f 12/0x7f=0x19 12/0x00=0x04"
expect "dspset: set rgain: 128"
expect "w 12/0x7c=0xdc 12/0x7d=0x05"
expect "w 12/0x7e=0xba 12/0x7f=0x27"
expect "w 10/0x06=0xb0"
expect "w 10/0x07=0x0c"
expect "w 11/0x0c=0x04 11/0x0d=0x04"
