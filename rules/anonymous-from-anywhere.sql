-- title: Anonymous access without any IP restriction
-- severity: medium
-- category: security
-- why: Nothing limits from where the site can be reached without a name and a password.
-- fix: Deny access by default and grant it to the networks that need the site, or require accounts.
-- requires: ftp_site.allows_anonymous ftp_site.grants_others
-- columns: anonymous_user text
select object_id,
       allows_anonymous and grants_others
         and case when granted_addresses <> '' or denied_addresses <> '' then false
                  when granted_addresses is null or denied_addresses is null or access_incomplete then null
                  else true end as holds,
       anonymous_user
from ftp_site
