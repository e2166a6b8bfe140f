-- title: Application pool runs as LocalSystem
-- severity: high
-- category: security
-- why: An application that is taken over has the rights of the whole machine.
-- fix: Use Network Service, or an account of its own that is a member of IIS_WPG and of no group of administrators.
-- references: DISA IIS6 Site STIG | V-13713, WA000-WI6040 | https://stigviewer.com/stig/iis6_site
-- references: Microsoft, Configuring Application Pool Identity | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc780343(v=ws.10)
-- requires: app_pool.account
-- columns: identity text, account text
select object_id, account = 'Local System' as holds, identity, account
from app_pool
