-- title: A named account is used
-- severity: info
-- category: migration
-- why: The account and its password have to be there after a migration too.
-- fix: Create the account on the new server, or give it access to the domain that has it.
-- references: Microsoft, Configuring Application Pool Identity | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc781986(v=ws.10)
-- requires: app_pool.account ftp_site.anonymous_user ftp_site.odbc_user
-- columns: account text identifying, used_for text identifying
select object_id, identity = 'Configurable' and account <> '' as holds, account, 'application pool' as used_for
from app_pool
union all
select object_id, allows_anonymous and anonymous_user <> '' and not starts_with(fold(anonymous_user), 'iusr_'),
       anonymous_user, 'anonymous access'
from ftp_site
union all
select object_id, logging and odbc_user <> '', odbc_user, 'ODBC logging'
from ftp_site
