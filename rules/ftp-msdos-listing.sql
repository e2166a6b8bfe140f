-- title: Directory listings are in the style of MS-DOS
-- severity: info
-- category: migration
-- why: Some graphical clients fail with it; the new server has to be given the same style, or a chosen one.
-- fix: Leave the flag StyleUnix of directoryBrowse unset to keep the style, or set it to change to that of UNIX.
-- references: Microsoft, FTP directoryBrowse | https://github.com/MicrosoftDocs/iis-docs/blob/main/iis/configuration/system.applicationHost/sites/site/ftpServer/directoryBrowse.md
-- references: Microsoft, MSDOSDirOutput | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc739699(v=ws.10)
-- requires: ftp_site.listing_style
-- columns: listing_style text
select object_id, listing_style = 'MS-DOS' as holds, listing_style
from ftp_site
