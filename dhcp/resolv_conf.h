// The files that tell the device's other programs what was learnt.
#pragma once

// Brings "resolv.conf" (search domain, name servers) and "dhcp.info" (hints of the last IPv4
// lease) in the working directory up to date; a file with the right content is not written again.
void write_resolv_conf();
