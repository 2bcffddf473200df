# The worked example of docs/wire-format.md, word for word, by accesses to the access ports alone: no flash
# driver, no script for a chip. Whatever differs is an error, with which OpenOCD ends.

source [find probe.tcl]

# Access port and offset.
set deviceId     {1 0x00}
set partId       {1 0x04}
set deviceStatus {1 0x08}
set txData       {2 0x00}
set txCtl        {2 0x04}
set rxData       {2 0x08}
set rxCtl        {2 0x0C}
set rstCtl       {2 0x10}

proc access {register args} {
  if {[catch {tovik.dap apreg {*}$register {*}$args} value]} { error "no access to $register" }
  return $value
}

proc expect {what actual expected} {
  set actual [string trim $actual]
  if {$actual ne $expected} { error "$what: $actual instead of $expected" }
}

proc waitFor {what register mask value} {
  for {set tries 0} {([access $register] & $mask) != $value} {incr tries} {
    if {$tries == 200} { error "$what: still [access $register]" }
  }
}

# The header with TX_CMD_START set, the other words with it clear.
proc exchange {what header words answer} {
  waitFor "room for $what" $::txCtl 1 0
  access $::txCtl 2
  access $::txData $header
  if {[llength $words] > 0} { access $::txCtl 0 }
  foreach word $words { access $::txData $word }
  waitFor $what $::rxCtl 1 1
  expect $what [access $::rxData] $answer
}

expect "DPIDR" [tovik.dap dpreg 0] 0x05411fff
expect "device" [access $deviceId] 0x2b7a10a1
expect "part" [access $partId] 0x00015120
expect "AHB-AP" [tovik.dap apid 0] 0x1fff0001

access $rstCtl 0x5C
waitFor "reset into SACI" $deviceStatus 0xFF00 0x2000
expect "status" [access $deviceStatus] 0x01002005

set sector [lrepeat 512 0xffffffff]
lset sector 1 0xffffff55
exchange "no operation" 0x00000001 {} 0x00000001
exchange "chip erase"   0x00000109 {0x5C17E94B} 0x00000109
exchange "programming"  0x0000020F "0x5C17E94B 0x00000800 $sector" 0x0000020f
exchange "verification" 0x00000310 {0x00000800 0x00000800 0x16CAD140} 0x00000310

# Packets full of transfers, where the others held one or two.
tovik.memory arp_examine
expect "sector as it was sent" [expr {[tovik.memory read_memory 0x800 32 512 phys] eq $sector}] 1

shutdown
