# What to know before the settings move to another server.
network-share
other-drive
named-account
ftp-log-format
ftp-msdos-listing
extension-to-install
ftp-clear-text-accounts
stopped
pool-serves-nothing
