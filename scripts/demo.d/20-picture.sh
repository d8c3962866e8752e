# Picture and white balance: colour to monochrome and back, light sources, manual gains, curves.

heading "Picture: colour, light sources, manual gains, curves"
start_camera
stored_settings wb_mode=atwpro saturation=4 rgain=128 bgain=64
on_camera_briefly camctl -v shell <<'COMMANDS'
set color=monochrome
set color=color
set wb=indoor
set wb=fluorescent
set wb=manual
set rgain=255 bgain=0
set contrast=6 sharpness=0 gamma=2 expcomp=18 blcomp=high
COMMANDS
stop_camera

show "color=monochrome is one bit of a register" "w 10/0x0a=0x01"
# Once at the start, once with the change to colour.
show "color=color brings white balance with it" "w 12/0x00=0x00 12/0x01=0x02" 2
show "and saturation" "w 10/0x09=0xa0" 2
show "wb=indoor is a pair of manual gains" \
  "w 12/0x7c=0x11 12/0x7d=0x10 12/0x7e=0x11 12/0x7f=0x10 12/0x00=0x04"
expect "w 12/0x7c=0xf6 12/0x7d=0x0a 12/0x7e=0x0f 12/0x7f=0x19 12/0x00=0x04"
expect "dspset: set rgain: 128"
show "rgain=255 is the lowest register gain" "w 12/0x7c=0xdc 12/0x7d=0x05"
expect "w 12/0x7e=0xba 12/0x7f=0x27"
show "contrast=6" "w 10/0x06=0xb0"
show "sharpness=0" "w 10/0x07=0x0c"
expect "w 11/0x0c=0x04 11/0x0d=0x04"
