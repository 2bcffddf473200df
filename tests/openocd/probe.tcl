# An OpenOCD that knows the probe and the debug port, and no chip.
gdb_port disabled
telnet_port disabled
adapter driver cmsis-dap
cmsis_dap_backend hid
transport select swd
adapter speed 4000
reset_config srst_only
swd newdap tovik cpu -expected-id 0
dap create tovik.dap -chain-position tovik.cpu
target create tovik.memory mem_ap -dap tovik.dap -ap-num 0 -defer-examine
init
