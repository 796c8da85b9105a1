<?xml version="1.0"?>
<!-- One line per listener: where the front end accepts connections. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/server">
    <endpoints service="{@name}">
      <xsl:for-each select="listeners/listener">
        <endpoint id="{@id}" at="{address}:{port}" tls="{boolean(tls[@enabled='true'])}"/>
      </xsl:for-each>
    </endpoints>
  </xsl:template>
</xsl:stylesheet>
