-- title: Web service extension to install
-- severity: info
-- category: migration
-- why: A new server has a minimum of features.
-- fix: Install the Windows feature or the product that the extension belongs to.
-- references: Microsoft, Enabling and Disabling Dynamic Content | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2008-r2-and-2008/cc753816(v=ws.10)
-- references: Microsoft, Installing IIS 7 | https://github.com/MicrosoftDocs/iis-docs/blob/main/iis/install/installing-iis-7/installing-iis-7-and-above-on-windows-server-2008-or-windows-server-2008-r2.md
-- requires: web_extension
-- columns: description text, status text
select object_id,
       case when bool_or(judged) then true when bool_or(judged is null) then null else false end as holds,
       min(description) as description, min(status) as status
from (select object_id, description, status,
             status in ('Allowed', 'Custom') and not starts_with(fold(description), 'all unknown ') as judged
      from web_extension) extension
group by object_id
