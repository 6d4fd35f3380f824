"""The programs of the router that are not simulated but recorded: where each one lives."""

# The scripts and programs that are called by path, or found on a router's PATH in these directories.
PROGRAMS = (
    "/bin/sh",
    "/etc/init.d/dnsmasq",
    "/etc/init.d/firewall",
    "/etc/init.d/led",
    "/etc/init.d/mwan3",
    "/etc/init.d/network",
    "/etc/init.d/shortcut-fe",
    "/etc/init.d/smstools3",
    "/sbin/ifdown",
    "/sbin/ifup",
    "/sbin/reboot",
    "/sbin/uqmi",
    "/sbin/wifi",
    "/usr/bin/check_verizon",
    "/usr/bin/hexdump",
    "/usr/bin/iwinfo",
    "/usr/bin/killall",
    "/usr/bin/modem_signal_led.sh",
    "/usr/bin/modem_upgrade_check",
    "/usr/bin/opkg",
    "/usr/bin/reactivate_mbn",
    "/usr/bin/sendsms",
    "/usr/bin/vela-firewall",
    "/usr/sbin/mwan3",
    "/usr/sbin/ssmtp",
)

# Directories of the product that start empty, whatever the host has there.
FRESH_DIRECTORIES = ("/etc/config", "/etc/spool", "/etc/init.d", "/etc/ssmtp", "/usr/share/modem", "/var/spool/sms",
                     "/www")
SPOOL = ("/etc/spool/sms/incoming", "/etc/spool/sms/storage", "/etc/spool/sms/outgoing", "/etc/spool/sms/sent",
         "/etc/spool/sms/failed", "/etc/spool/sms/checked", "/www/src/lib")
